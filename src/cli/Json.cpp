#include "cli/Json.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace velmora::cli {

std::string jsonEscape(std::string_view s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += char(c);
            }
        }
    }
    return out + "\"";
}

void JsonWriter::separate() {
    if (needComma_) out_ += ',';
    needComma_ = true;
}

JsonWriter& JsonWriter::beginObject() {
    separate();
    out_ += '{';
    needComma_ = false;
    return *this;
}
JsonWriter& JsonWriter::endObject() {
    out_ += '}';
    needComma_ = true;
    return *this;
}
JsonWriter& JsonWriter::beginArray() {
    separate();
    out_ += '[';
    needComma_ = false;
    return *this;
}
JsonWriter& JsonWriter::endArray() {
    out_ += ']';
    needComma_ = true;
    return *this;
}
JsonWriter& JsonWriter::key(std::string_view k) {
    separate();
    out_ += jsonEscape(k);
    out_ += ':';
    needComma_ = false;
    return *this;
}
JsonWriter& JsonWriter::value(std::string_view s) {
    separate();
    out_ += jsonEscape(s);
    return *this;
}
JsonWriter& JsonWriter::value(bool b) {
    separate();
    out_ += b ? "true" : "false";
    return *this;
}
JsonWriter& JsonWriter::value(int i) {
    separate();
    out_ += std::to_string(i);
    return *this;
}
JsonWriter& JsonWriter::value(double d) {
    if (!std::isfinite(d)) return null();
    separate();
    char buf[64];
    // Shortest text that reads back to the same double, locale-independent.
    const auto r = std::to_chars(buf, buf + sizeof buf, d);
    out_.append(buf, r.ptr);
    return *this;
}
JsonWriter& JsonWriter::null() {
    separate();
    out_ += "null";
    return *this;
}

}  // namespace velmora::cli
