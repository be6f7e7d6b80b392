// JSON: parsing any bytes never misbehaves, and what parses survives a round trip
// through both writers and the measured reading used for request payloads.
#include "FuzzCheck.h"
#include "foundation/JSONReader.h"
#include "foundation/JSONValue.h"

using namespace tidewick;

namespace {

// Every number converts without undefined behaviour, whatever its size.
void convertNumbers(const JSONValue& value) {
    if (value.isNumber()) {
        (void)value.intValue();
        (void)value.doubleValue();
    } else if (const JSONValue::Array* elements = value.arrayValue()) {
        for (const JSONValue& element : *elements)
            convertNumbers(element);
    } else if (const JSONValue::Object* pairs = value.objectPairs()) {
        for (const JSONValue::Pair& pair : *pairs)
            convertNumbers(pair.second);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = fuzz::text(data, size);
    JSONValue value;
    try {
        value = JSONValue::parse(input);
    } catch (const JSONValue::ParseError& error) {
        fuzz::check(std::string_view(error.what()).find(" at byte ") != std::string_view::npos ||
                        error.message() == "File is not UTF-8",
                    "every parse error names its offset");
        return 0;
    }
    convertNumbers(value);
    const std::string compact = value.compact();
    fuzz::check(JSONValue::parse(compact) == value, "compact text parses to the same value");
    fuzz::check(JSONValue::parse(value.pretty(2)) == value, "pretty text parses to the same value");
    fuzz::check(JSONValue::from(JSONValue::from(value)) == JSONValue::from(value),
                "sorting keys twice changes nothing");

    JSONReader measured(input);
    const JSONReader::Footprint footprint = measured.measureValue();
    JSONReader reader(input);
    reader.reserveFor(footprint);
    fuzz::check(reader.readValue() == value, "a measured reading gives the same value");
    return 0;
}
