#include "json_writer.h"

#include <cassert>
#include <cstdio>

namespace codecutil_tool {

void JsonWriter::before_value() {
    if (after_key_) {
        after_key_ = false;
        return;
    }
    if (!first_in_scope_.empty()) {
        if (!first_in_scope_.back()) out_ += ',';
        first_in_scope_.back() = false;
    }
}

void JsonWriter::begin_object() {
    before_value();
    out_ += '{';
    first_in_scope_.push_back(true);
}

void JsonWriter::end_object() {
    assert(!first_in_scope_.empty() && !after_key_);
    first_in_scope_.pop_back();
    out_ += '}';
}

void JsonWriter::begin_array() {
    before_value();
    out_ += '[';
    first_in_scope_.push_back(true);
}

void JsonWriter::end_array() {
    assert(!first_in_scope_.empty() && !after_key_);
    first_in_scope_.pop_back();
    out_ += ']';
}

void JsonWriter::key(std::string_view name) {
    before_value();
    append_string(name);
    out_ += ':';
    after_key_ = true;
}

void JsonWriter::value(std::string_view text) {
    before_value();
    append_string(text);
}

void JsonWriter::value(uint64_t number) {
    before_value();
    out_ += std::to_string(number);
}

// RFC 8259 7: quote, backslash and control characters are escaped; other
// bytes (UTF-8 file names) pass through.
void JsonWriter::append_string(std::string_view text) {
    out_ += '"';
    for (char c : text) {
        switch (c) {
            case '"':
                out_ += "\\\"";
                break;
            case '\\':
                out_ += "\\\\";
                break;
            case '\n':
                out_ += "\\n";
                break;
            case '\r':
                out_ += "\\r";
                break;
            case '\t':
                out_ += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x",
                                  static_cast<unsigned>(static_cast<unsigned char>(c)));
                    out_ += escaped;
                } else {
                    out_ += c;
                }
        }
    }
    out_ += '"';
}

}  // namespace codecutil_tool
