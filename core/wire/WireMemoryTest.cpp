// Decoding a request line takes at most four times the line's size, whatever the
// line holds: measured by counting every allocation of this test program.
#include "wire/Wire.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::atomic<std::size_t> liveBytes{0};
std::atomic<std::size_t> peakBytes{0};

void* allocate(std::size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (!block)
        throw std::bad_alloc();
    const std::size_t live = liveBytes += ::malloc_usable_size(block);
    std::size_t peak = peakBytes.load();
    while (live > peak && !peakBytes.compare_exchange_weak(peak, live)) {
    }
    return block;
}

void release(void* block) noexcept {
    if (!block)
        return;
    liveBytes -= ::malloc_usable_size(block);
    std::free(block);
}

} // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}

namespace tidewick {
namespace {

// The most memory held at once while `line` is decoded, beyond what was held before.
std::size_t decodingPeak(const std::string& line, std::string_view secret, bool& decoded) {
    const std::size_t before = liveBytes.load();
    peakBytes = before;
    decoded = Wire::decode(line, secret).has_value();
    return peakBytes.load() - before;
}

// A request line of about `size` bytes whose payload repeats `unit` inside `open` and `close`.
std::string requestLine(std::size_t size, const std::string& open, const std::string& unit,
                        const std::string& close) {
    std::string line = R"({"v":1,"secret":"s","agent":"claude","event":"PreToolUse","payload":)";
    line += open;
    const std::size_t target = size - close.size() - 1;
    while (line.size() + unit.size() + 1 < target)
        line += unit + ",";
    line += unit + close + "}";
    return line;
}

TEST(WireMemory, DecodingAnyLinePeaksAtFourTimesItsSize) {
    constexpr std::size_t size = 2 * 1024 * 1024;
    struct Row {
        const char* shape;
        std::string line;
        bool readable; // small enough in memory to be read
    };
    const std::string depth(900, '[');
    const std::string undepth(900, ']');
    const std::vector<Row> rows = {
        {"one long string", requestLine(size, R"({"content":[)", "\"" + std::string(4000, 'a') + "\"", "]}"), true},
        {"escapes", requestLine(size, R"({"content":")", R"(\n\u00e9\ud83d\ude00\")", "\"}"), true},
        {"zeros", requestLine(size, R"({"a":[)", "0", "]}"), false},
        {"empty arrays", requestLine(size, R"({"a":[)", "[]", "]}"), false},
        {"tiny objects", requestLine(size, R"({"a":[)", R"({"k":1})", "]}"), false},
        {"many keys", requestLine(size, R"({"k":0)", R"("k":0)", "}"), false},
        {"long numbers", requestLine(size, R"({"a":[)", "1234567890123456789012345", "]}"), false},
        {"long escaped keys", requestLine(size, "{", R"("\u006b0123456789abcdefgh":"")", "}"), false},
        {"deep nesting", requestLine(size, R"({"a":[)", depth + undepth, "]}"), false},
        {"strings in nesting", requestLine(size, R"({"a":[)", "[[\"" + std::string(40, 'x') + "\"]]", "]}"), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.shape);
        for (const char* secret : {"s", "not the secret"}) {
            bool decoded = false;
            const std::size_t peak = decodingPeak(row.line, secret, decoded);
            // The line itself is the first of the four.
            EXPECT_LE(row.line.size() + peak, 4 * row.line.size()) << peak;
            EXPECT_EQ(decoded, row.readable && std::string_view(secret) == "s");
            if (std::string_view(secret) != "s") {
                EXPECT_LT(peak, row.line.size() / 8) << "the payload of a stranger is never read";
            }
        }
    }
}

} // namespace
} // namespace tidewick
