#include "events/ToolDescriber.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using MaybeText = std::optional<std::string>;

// {"<key>":"<text>"} with `text` quoted as JSON.
std::string input(const char* key, const std::string& text) {
    return JSONValue(JSONValue::Object{{key, text}}).compact();
}

TEST(ToolDescriber, DescribesEachFamilyOfTools) {
    struct Row {
        const char* tool;
        std::string input;
        std::string title;
        MaybeText detail;
        bool shell; // then the command is the detail
    };
    const std::string x60(60, 'x'), x61 = x60 + "y", q45(45, 'q');
    const std::string flag = "\U0001F1EB\U0001F1F7"; // two code points, one character
    const std::string flagged = std::string(58, 'a') + flag + "bc";
    const std::string url = "https://example.com/" + std::string(40, 'p');
    const std::string patch = "*** Begin Patch\n*** Update File: src/a.c\n@@\n-x\n+y\n"
                              "*** Add File:  docs/b.md \n*** Delete File: old/c.h\n*** End Patch";
    const std::string big = R"({"k":")" + std::string(593, 'v') + R"("})"; // 601 characters
    const auto none = std::nullopt;
    // clang-format off
    const Row rows[] = {
        {"Bash", input("command", x60), "Run " + x60, x60, true},
        {"bash", input("command", x61), "Run " + std::string(59, 'x') + "\u2026", x61, true},
        {"BASH", input("command", flagged), "Run " + std::string(58, 'a') + flag + "\u2026", flagged, true},
        {"shell", R"({"command":"cd src\nmake"})", "Run cd src make", "cd src\nmake", true},
        // A command key makes any tool a shell call, unless a file path is present.
        {"runner", R"({"command":"make all"})", "Run make all", "make all", true},
        {"runner", R"({"command":"make","file_path":"/src/Makefile"})", "runner Makefile", "/src/Makefile", false},
        {"run_command", R"({"CommandLine":"npm ci"})", "Run npm ci", "npm ci", true},
        {"exec_command", R"({"cmd":["ls","-la"]})", "Run ls -la", "ls -la", true},
        {"bash", R"({"command":""})", "bash", R"({"command":""})", false},
        {"Edit", R"({"file_path":"/p/src/main.cpp"})", "Edit main.cpp", "/p/src/main.cpp", false},
        {"edit", "{}", "Edit file", none, false},
        {"replace_file_content", R"({"TargetFile":"/w/a.go"})", "Edit a.go", "/w/a.go", false},
        {"NotebookEdit", R"({"notebook_path":"/n/x.ipynb"})", "Edit x.ipynb", "/n/x.ipynb", false},
        {"write_to_file", R"({"TargetFile":"/w/new.txt"})", "Write new.txt", "/w/new.txt", false},
        {"create_file", "{}", "Write file", none, false},
        {"view_file", R"({"AbsolutePath":"/w/b.py"})", "Read b.py", "/w/b.py", false},
        {"Read", R"({"path":"/second","file_path":"/first"})", "Read first", "/first", false},
        {"read_file", R"({"path":5,"filePath":"/ok.txt"})", "Read ok.txt", "/ok.txt", false},
        {"apply_patch", input("patch", patch), "Patch a.c, b.md", "src/a.c\ndocs/b.md\nold/c.h", false},
        {"apply_patch", R"({"input":"just text"})", "Apply patch", "just text", false},
        {"apply_patch", "{}", "Apply patch", none, false},
        {"Grep", R"({"pattern":"TODO"})", "Grep TODO", "TODO", false},
        {"grep_search", input("Query", q45), "grep_search " + std::string(39, 'q') + "\u2026", q45, false},
        {"Glob", R"({"pattern":"  "})", "Glob", "  ", false},
        {"ls", "{}", "ls", none, false},
        {"WebFetch", input("url", url), "WebFetch " + url.substr(0, 49) + "\u2026", url, false},
        {"web_search", R"({"query":"gtest"})", "web_search gtest", "gtest", false},
        {"mcp__gh__issue", R"({"title":"Bug","body":"x","labels":["a"]})", "mcp__gh__issue", R"({"body":"x","labels":["a"],"title":"Bug"})", false},
        {"Custom", big, "Custom", big.substr(0, 599) + "\u2026", false},
        {"Custom", "{}", "Custom", none, false},
        {"Custom", "[1,2]", "Custom", none, false},
        {"Edit", R"("{\"file_path\":\"/s/x.rs\"}")", "Edit x.rs", "/s/x.rs", false}, // JSON text
    };
    // clang-format on
    for (const Row& row : rows) {
        JSONValue value = JSONValue::parse(row.input);
        EXPECT_EQ(
            ToolDescriber::describe(std::string(row.tool), &value),
            (ToolDescription{row.title, row.detail, row.shell, row.shell ? row.detail : none}))
            << row.tool << " " << row.input;
    }
    EXPECT_EQ(ToolDescriber::describe(std::nullopt, nullptr),
              (ToolDescription{"tool", none, false, none}));
    EXPECT_EQ(
        ToolDescriber::patchedFiles("*** Update File: a\n*** Move to: b\r\nnoise\n*** Add File:"),
        (std::vector<std::string>{"a", "b"}));
    // The rows above cut titles by characters; a limit of none leaves no ellipsis either.
    EXPECT_EQ(ToolDescriber::truncate("a", 0), "");
    EXPECT_TRUE(ToolDescriber::isShellTool(std::string("PowerShell")));
    EXPECT_FALSE(ToolDescriber::isShellTool(std::string("bash2")));
}

TEST(ToolDescriber, CommandTextReadsStringsAndArgumentVectors) {
    const std::pair<const char*, MaybeText> rows[] = {
        {R"(["bash","-lc","npm test"])", "npm test"},
        {R"(["/bin/zsh","-c","echo","hi"])", "echo hi"},
        {R"(["sh","-x","run.sh"])", "sh -x run.sh"},
        {R"js(["python3","-c","print(1)"])js", "python3 -c print(1)"},
        {R"(["bash",7,"-c",null,"true"])", "true"},
        {R"("git status")", "git status"},
        {R"("")", std::nullopt},
        {R"([1,{"a":"b"}])", std::nullopt},
        {"42", std::nullopt},
    };
    for (const auto& [input, expected] : rows) {
        JSONValue value = JSONValue::parse(input);
        EXPECT_EQ(ToolDescriber::commandText(&value), expected) << input;
    }
    EXPECT_EQ(ToolDescriber::commandText(nullptr), std::nullopt);
}

} // namespace
} // namespace tidewick
