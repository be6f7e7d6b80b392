#include "events/ToolDescriber.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

JSONValue json(std::string_view text) {
    return JSONValue::parse(text);
}

ToolDescription describe(const char* tool, std::string_view input) {
    JSONValue value = json(input);
    return ToolDescriber::describe(std::string(tool), &value);
}

TEST(ToolDescriber, ShellCallsAreTitledWithTheCommandCutAtSixtyCharacters) {
    std::string sixty(60, 'x');
    auto whole = describe("Bash", R"({"command":")" + sixty + R"("})");
    EXPECT_EQ(whole.title, "Run " + sixty);
    EXPECT_TRUE(whole.isShell);
    EXPECT_EQ(whole.command, sixty);
    EXPECT_EQ(whole.detail, sixty);

    std::string sixtyOne = sixty + "y";
    auto cut = describe("bash", R"({"command":")" + sixtyOne + R"("})");
    EXPECT_EQ(cut.title, "Run " + std::string(59, 'x') + "\u2026");
    EXPECT_EQ(cut.detail, sixtyOne);

    // A flag is one character: it is either kept whole or dropped whole.
    std::string flagged = std::string(58, 'a') + "\U0001F1EB\U0001F1F7" + "bc";
    auto flag = describe("BASH", R"({"command":")" + flagged + R"("})");
    EXPECT_EQ(flag.title, "Run " + std::string(58, 'a') + "\U0001F1EB\U0001F1F7\u2026");

    auto multiline = describe("shell", R"({"command":"cd src\nmake"})");
    EXPECT_EQ(multiline.title, "Run cd src make");
    EXPECT_EQ(multiline.detail, "cd src\nmake");
}

TEST(ToolDescriber, ACommandKeyMakesAShellCallUnlessAFilePathIsPresent) {
    auto custom = describe("runner", R"({"command":"make all"})");
    EXPECT_TRUE(custom.isShell);
    EXPECT_EQ(custom.title, "Run make all");

    auto withPath = describe("runner", R"({"command":"make","file_path":"/src/Makefile"})");
    EXPECT_FALSE(withPath.isShell);
    EXPECT_EQ(withPath.command, std::nullopt);
    EXPECT_EQ(withPath.title, "runner Makefile");

    EXPECT_EQ(describe("run_command", R"({"CommandLine":"npm ci"})").title, "Run npm ci");
    EXPECT_EQ(describe("exec_command", R"({"cmd":["ls","-la"]})").title, "Run ls -la");
    // A shell tool without any command text falls through to the generic rules.
    auto empty = describe("bash", R"({"command":""})");
    EXPECT_FALSE(empty.isShell);
    EXPECT_EQ(empty.title, "bash");
    EXPECT_EQ(empty.detail, R"({"command":""})");
}

TEST(ToolDescriber, CommandTextReadsStringsAndArgumentVectors) {
    auto text = [](std::string_view input) {
        JSONValue value = json(input);
        return ToolDescriber::commandText(&value);
    };
    EXPECT_EQ(text(R"(["bash","-lc","npm test"])"), "npm test");
    EXPECT_EQ(text(R"(["/bin/zsh","-c","echo","hi"])"), "echo hi");
    EXPECT_EQ(text(R"(["ls","-la"])"), "ls -la");
    EXPECT_EQ(text(R"(["sh","-x","run.sh"])"), "sh -x run.sh");
    EXPECT_EQ(text(R"js(["python3","-c","print(1)"])js"), "python3 -c print(1)");
    EXPECT_EQ(text(R"(["bash",7,"-c",null,"true"])"), "true");
    EXPECT_EQ(text(R"("git status")"), "git status");
    EXPECT_EQ(text(R"("")"), std::nullopt);
    EXPECT_EQ(text(R"([1,{"a":"b"}])"), std::nullopt);
    EXPECT_EQ(text("42"), std::nullopt);
    EXPECT_EQ(ToolDescriber::commandText(nullptr), std::nullopt);
}

TEST(ToolDescriber, FileToolsNameTheFile) {
    EXPECT_EQ(describe("Edit", R"({"file_path":"/p/src/main.cpp"})"),
              (ToolDescription{"Edit main.cpp", "/p/src/main.cpp", false, std::nullopt}));
    EXPECT_EQ(describe("edit", "{}"),
              (ToolDescription{"Edit file", std::nullopt, false, std::nullopt}));
    EXPECT_EQ(describe("replace_file_content", R"({"TargetFile":"/w/a.go"})").title, "Edit a.go");
    EXPECT_EQ(describe("NotebookEdit", R"({"notebook_path":"/n/x.ipynb"})").title, "Edit x.ipynb");
    EXPECT_EQ(describe("write_to_file", R"({"TargetFile":"/w/new.txt"})").title, "Write new.txt");
    EXPECT_EQ(describe("create_file", "{}").title, "Write file");
    EXPECT_EQ(describe("view_file", R"({"AbsolutePath":"/w/b.py"})").detail, "/w/b.py");
    EXPECT_EQ(describe("Read", R"({"path":"/second","file_path":"/first"})").detail, "/first");
    // A path of another type does not count as a path.
    EXPECT_EQ(describe("read_file", R"({"path":5,"filePath":"/ok.txt"})").title, "Read ok.txt");
}

TEST(ToolDescriber, PatchesNameAtMostTwoFilesAndDetailAllOfThem) {
    const char* patch = "*** Begin Patch\n*** Update File: src/a.c\n@@\n-x\n+y\n"
                        "*** Add File:  docs/b.md \n*** Delete File: old/c.h\n*** End Patch";
    auto described =
        describe("apply_patch", JSONValue(JSONValue::Object{{"patch", patch}}).compact());
    EXPECT_EQ(described.title, "Patch a.c, b.md");
    EXPECT_EQ(described.detail, "src/a.c\ndocs/b.md\nold/c.h");

    EXPECT_EQ(
        ToolDescriber::patchedFiles("*** Update File: a\n*** Move to: b\r\nnoise\n*** Add File:"),
        (std::vector<std::string>{"a", "b"}));

    auto plain = describe("apply_patch", R"({"input":"just text"})");
    EXPECT_EQ(plain.title, "Apply patch");
    EXPECT_EQ(plain.detail, "just text");
    EXPECT_EQ(describe("apply_patch", "{}").detail, std::nullopt);
}

TEST(ToolDescriber, SearchAndWebToolsShowTheirQueryShortened) {
    EXPECT_EQ(describe("Grep", R"({"pattern":"TODO"})"),
              (ToolDescription{"Grep TODO", "TODO", false, std::nullopt}));
    std::string longQuery(45, 'q');
    auto search = describe("grep_search", R"({"Query":")" + longQuery + R"("})");
    EXPECT_EQ(search.title, "grep_search " + std::string(39, 'q') + "\u2026");
    EXPECT_EQ(search.detail, longQuery);
    EXPECT_EQ(describe("Glob", R"({"pattern":"  "})").title, "Glob");
    EXPECT_EQ(describe("ls", "{}").title, "ls");

    std::string url = "https://example.com/" + std::string(40, 'p');
    auto fetch = describe("WebFetch", R"({"url":")" + url + R"("})");
    EXPECT_EQ(fetch.title, "WebFetch " + url.substr(0, 49) + "\u2026");
    EXPECT_EQ(fetch.detail, url);
    EXPECT_EQ(describe("web_search", R"({"query":"gtest"})").title, "web_search gtest");
}

TEST(ToolDescriber, OtherToolsShowTheirInputAsSortedCompactJSON) {
    auto mcp =
        describe("mcp__github__create_issue", R"({"title":"Bug","body":"x","labels":["a"]})");
    EXPECT_EQ(mcp.title, "mcp__github__create_issue");
    EXPECT_EQ(mcp.detail, R"({"body":"x","labels":["a"],"title":"Bug"})");

    // {"k":"…"} is 8 characters around the value: 593 more make 601.
    auto big = describe("Custom", R"({"k":")" + std::string(593, 'v') + R"("})");
    std::string expected = R"({"k":")" + std::string(593, 'v');
    EXPECT_EQ(big.detail, expected.substr(0, 599) + "\u2026");

    EXPECT_EQ(describe("Custom", "{}").detail, std::nullopt);
    EXPECT_EQ(describe("Custom", "[1,2]").detail, std::nullopt);
    EXPECT_EQ(ToolDescriber::describe(std::nullopt, nullptr),
              (ToolDescription{"tool", std::nullopt, false, std::nullopt}));
    // Some agents send the input as JSON text.
    EXPECT_EQ(describe("Edit", R"("{\"file_path\":\"/s/x.rs\"}")").title, "Edit x.rs");
}

TEST(ToolDescriber, TruncateCountsUserPerceivedCharacters) {
    EXPECT_EQ(ToolDescriber::truncate("abc", 3), "abc");
    EXPECT_EQ(ToolDescriber::truncate("abcd", 3), "ab\u2026");
    EXPECT_EQ(ToolDescriber::truncate("", 0), "");
    EXPECT_EQ(ToolDescriber::truncate("a", 0), "");
    std::string thumbs = "\U0001F44D\U0001F3FD"; // thumbs up with a skin tone: one character
    EXPECT_EQ(ToolDescriber::truncate(thumbs + thumbs + thumbs, 3), thumbs + thumbs + thumbs);
    EXPECT_EQ(ToolDescriber::truncate(thumbs + thumbs + thumbs + "x", 3),
              thumbs + thumbs + "\u2026");
    EXPECT_TRUE(ToolDescriber::isShellTool(std::string("PowerShell")));
    EXPECT_FALSE(ToolDescriber::isShellTool(std::string("bash2")));
    EXPECT_FALSE(ToolDescriber::isShellTool(std::nullopt));
}

} // namespace
} // namespace tidewick
