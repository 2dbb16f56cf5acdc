#include "mastering/MasterParams.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <variant>

namespace velmora {

std::string_view rawValue(ProcessMode mode) {
    return mode == ProcessMode::master ? "Tranche master" : "Conformité";
}

std::optional<ProcessMode> processModeFromRaw(std::string_view raw) {
    if (raw == rawValue(ProcessMode::master)) return ProcessMode::master;
    if (raw == rawValue(ProcessMode::conform)) return ProcessMode::conform;
    return std::nullopt;
}

namespace {

struct Field {
    std::string_view key;
    std::variant<bool MasterParams::*, double MasterParams::*> member;
};

// Key order is field order. The names are the persisted form inside user presets: never rename one.
constexpr std::array<Field, 35> fields{{
    {"eqOn", &MasterParams::eqOn},
    {"hpfOn", &MasterParams::hpfOn},
    {"hpfFreq", &MasterParams::hpfFreq},
    {"lsGain", &MasterParams::lsGain},
    {"lsFreq", &MasterParams::lsFreq},
    {"b1Freq", &MasterParams::b1Freq},
    {"b1Gain", &MasterParams::b1Gain},
    {"b1Q", &MasterParams::b1Q},
    {"b2Freq", &MasterParams::b2Freq},
    {"b2Gain", &MasterParams::b2Gain},
    {"b2Q", &MasterParams::b2Q},
    {"hsGain", &MasterParams::hsGain},
    {"hsFreq", &MasterParams::hsFreq},
    {"compOn", &MasterParams::compOn},
    {"compThreshold", &MasterParams::compThreshold},
    {"compRatio", &MasterParams::compRatio},
    {"compAttack", &MasterParams::compAttack},
    {"compRelease", &MasterParams::compRelease},
    {"compMakeup", &MasterParams::compMakeup},
    {"lraOn", &MasterParams::lraOn},
    {"lraTarget", &MasterParams::lraTarget},
    {"msOn", &MasterParams::msOn},
    {"midGain", &MasterParams::midGain},
    {"sideGain", &MasterParams::sideGain},
    {"teqOn", &MasterParams::teqOn},
    {"tLsGain", &MasterParams::tLsGain},
    {"tLsFreq", &MasterParams::tLsFreq},
    {"tMidGain", &MasterParams::tMidGain},
    {"tMidFreq", &MasterParams::tMidFreq},
    {"tMidQ", &MasterParams::tMidQ},
    {"tHsGain", &MasterParams::tHsGain},
    {"tHsFreq", &MasterParams::tHsFreq},
    {"autoProtectComp", &MasterParams::autoProtectComp},
    {"autoProtectThresholdDB", &MasterParams::autoProtectThresholdDB},
    {"lraIterative", &MasterParams::lraIterative},
}};

void appendNumber(std::string& out, double v) {
    if (!std::isfinite(v)) {
        out += "null";
        return;
    }
    char buf[32];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
}

void appendUtf8(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
        out += char(cp);
    } else if (cp < 0x800) {
        out += char(0xC0 | (cp >> 6));
        out += char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += char(0xE0 | (cp >> 12));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    } else {
        out += char(0xF0 | (cp >> 18));
        out += char(0x80 | ((cp >> 12) & 0x3F));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    }
}

// A flat JSON object reader: scalar values only, anything nested is refused.
class Reader {
public:
    explicit Reader(std::string_view text) : s_(text) {}

    struct Value {
        enum class Kind { boolean, number, other } kind;
        bool b = false;
        double d = 0.0;
    };

    void skipSpace() {
        while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\n' || s_[pos_] == '\r'))
            ++pos_;
    }
    bool eat(char c) {
        skipSpace();
        if (pos_ < s_.size() && s_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    bool atEnd() {
        skipSpace();
        return pos_ == s_.size();
    }

    bool string(std::string& out) {
        out.clear();
        if (!eat('"')) return false;
        while (pos_ < s_.size()) {
            const char c = s_[pos_++];
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                out += c;
                continue;
            }
            if (pos_ >= s_.size()) return false;
            switch (s_[pos_++]) {
                case '"': out += '"'; break;
                case '\\': out += '\\'; break;
                case '/': out += '/'; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'n': out += '\n'; break;
                case 'r': out += '\r'; break;
                case 't': out += '\t'; break;
                case 'u': {
                    std::uint32_t cp = 0;
                    if (!hex4(cp)) return false;
                    if (cp >= 0xD800 && cp < 0xDC00) {
                        std::uint32_t low = 0;
                        if (pos_ + 2 > s_.size() || s_[pos_] != '\\' || s_[pos_ + 1] != 'u') return false;
                        pos_ += 2;
                        if (!hex4(low) || low < 0xDC00 || low >= 0xE000) return false;
                        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    } else if (cp >= 0xDC00 && cp < 0xE000) {
                        return false;
                    }
                    appendUtf8(out, cp);
                    break;
                }
                default: return false;
            }
        }
        return false;
    }

    std::optional<Value> value() {
        skipSpace();
        if (pos_ >= s_.size()) return std::nullopt;
        const char c = s_[pos_];
        if (c == '"') {
            std::string ignored;
            if (!string(ignored)) return std::nullopt;
            return Value{Value::Kind::other};
        }
        if (literal("true")) return Value{Value::Kind::boolean, true};
        if (literal("false")) return Value{Value::Kind::boolean, false};
        if (literal("null")) return Value{Value::Kind::other};
        if (c == '-' || (c >= '0' && c <= '9')) return number();
        return std::nullopt;  // objects and arrays included
    }

private:
    bool literal(std::string_view word) {
        if (s_.substr(pos_, word.size()) != word) return false;
        pos_ += word.size();
        return true;
    }

    bool hex4(std::uint32_t& out) {
        if (pos_ + 4 > s_.size()) return false;
        const auto r = std::from_chars(s_.data() + pos_, s_.data() + pos_ + 4, out, 16);
        if (r.ptr != s_.data() + pos_ + 4) return false;
        pos_ += 4;
        return true;
    }

    std::optional<Value> number() {
        const std::size_t start = pos_;
        auto digits = [&] {
            const std::size_t from = pos_;
            while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9') ++pos_;
            return pos_ > from;
        };
        if (s_[pos_] == '-') ++pos_;
        if (pos_ < s_.size() && s_[pos_] == '0') {
            ++pos_;
        } else if (!digits()) {
            return std::nullopt;
        }
        if (pos_ < s_.size() && s_[pos_] == '.') {
            ++pos_;
            if (!digits()) return std::nullopt;
        }
        if (pos_ < s_.size() && (s_[pos_] == 'e' || s_[pos_] == 'E')) {
            ++pos_;
            if (pos_ < s_.size() && (s_[pos_] == '+' || s_[pos_] == '-')) ++pos_;
            if (!digits()) return std::nullopt;
        }
        Value v{Value::Kind::number};
        // from_chars does not take a leading '+' but does take '-', which the grammar allowed.
        const auto r = std::from_chars(s_.data() + start, s_.data() + pos_, v.d);
        if (r.ec != std::errc{} || r.ptr != s_.data() + pos_) return std::nullopt;
        return v;
    }

    std::string_view s_;
    std::size_t pos_ = 0;
};

}  // namespace

std::string toJson(const MasterParams& p) {
    std::string out;
    out.reserve(1024);
    out += '{';
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i > 0) out += ',';
        out += '"';
        out += fields[i].key;
        out += "\":";
        if (const auto* b = std::get_if<bool MasterParams::*>(&fields[i].member))
            out += p.*(*b) ? "true" : "false";
        else
            appendNumber(out, p.*std::get<double MasterParams::*>(fields[i].member));
    }
    out += '}';
    return out;
}

std::optional<MasterParams> masterParamsFromJson(std::string_view json) {
    Reader in(json);
    MasterParams p;
    std::array<bool, fields.size()> seen{};
    if (!in.eat('{')) return std::nullopt;
    if (!in.eat('}')) {
        std::string key;
        do {
            if (!in.string(key) || !in.eat(':')) return std::nullopt;
            const auto v = in.value();
            if (!v) return std::nullopt;
            for (std::size_t i = 0; i < fields.size(); ++i) {
                if (fields[i].key != key) continue;
                if (seen[i]) return std::nullopt;
                seen[i] = true;
                if (const auto* b = std::get_if<bool MasterParams::*>(&fields[i].member)) {
                    if (v->kind != Reader::Value::Kind::boolean) return std::nullopt;
                    p.*(*b) = v->b;
                } else {
                    if (v->kind != Reader::Value::Kind::number) return std::nullopt;
                    p.*std::get<double MasterParams::*>(fields[i].member) = v->d;
                }
                break;
            }
        } while (in.eat(','));
        if (!in.eat('}')) return std::nullopt;
    }
    if (!in.atEnd()) return std::nullopt;
    for (bool s : seen)
        if (!s) return std::nullopt;
    return p;
}

}  // namespace velmora
