// Minimal JSON writer for the tool's machine-readable reports: objects,
// arrays, strings and unsigned integers, written compactly into a string.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace codecutil_tool {

class JsonWriter {
public:
    void begin_object();
    void end_object();
    void begin_array();
    void end_array();
    // Names the next value inside an object.
    void key(std::string_view name);
    void value(std::string_view text);
    void value(const char* text) { value(std::string_view(text)); }
    void value(uint64_t number);
    // A key and its value.
    template <class T>
    void field(std::string_view name, const T& v) {
        key(name);
        value(v);
    }

    [[nodiscard]] const std::string& text() const { return out_; }

private:
    void before_value();
    void append_string(std::string_view text);

    std::string out_;
    std::vector<bool> first_in_scope_;
    bool after_key_ = false;
};

}  // namespace codecutil_tool
