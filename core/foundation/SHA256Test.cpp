#include "foundation/SHA256.h"

#include "foundation/Hex.h"

#include <gtest/gtest.h>

#include <string>

using namespace tidewick;

namespace {

std::string hex(const SHA256::Digest& digest) {
    std::string out;
    Hex::append(out, digest);
    return out;
}

} // namespace

TEST(SHA256, KnownDigestsAcrossTheBlockBoundaries) {
    // Lengths around 55, 56 and 64 bytes decide whether the length needs a block of its own.
    const std::pair<std::string, std::string> rows[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string(55, 'a'), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
        {std::string(56, 'a'), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
        {std::string(64, 'a'), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
        {std::string(1000, 'a'), "41edece42d63e8d9bf515a9ba6932e1c20cbc9f5a5d134645adb5db1b9737ea3"},
        // A hook entry as Codex hashes it when the user approves it.
        {R"({"event_name":"pre_tool_use","hooks":[{"async":false,"command":"echo hi","timeout":10,"type":"command"}]})",
         "7a71ee914aae1e8851a62cc0bb833b0269c1789a3d6103a49a5e6544a18c5fbc"},
    };
    for (const auto& [input, digest] : rows) {
        SCOPED_TRACE(input.size());
        EXPECT_EQ(hex(SHA256::of(input)), digest);
    }
}
