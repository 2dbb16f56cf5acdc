#pragma once
// A minimal streaming JSON writer for the command line's one-object-per-line output.
#include <optional>
#include <string>
#include <string_view>

namespace velmora::cli {

class JsonWriter {
public:
    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    JsonWriter& key(std::string_view k);
    JsonWriter& value(std::string_view s);
    JsonWriter& value(const char* s) { return value(std::string_view(s)); }
    JsonWriter& value(bool b);
    JsonWriter& value(int i);
    // Non-finite numbers are written as null: they mean "could not be measured".
    JsonWriter& value(double d);
    JsonWriter& value(std::optional<double> d) { return d ? value(*d) : null(); }
    JsonWriter& null();

    template <typename T>
    JsonWriter& field(std::string_view k, const T& v) {
        key(k);
        return value(v);
    }

    const std::string& str() const { return out_; }

private:
    void separate();
    std::string out_;
    bool needComma_ = false;
};

std::string jsonEscape(std::string_view s);

}  // namespace velmora::cli
