#include "mastering/MasterParams.h"

#include <utility>

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

// A field left out of the table would silently reset to its default at every save and load, and
// a key or member listed twice would shadow another: both are caught here, at compile time.

// Converts to any field type, so braced initialisation counts the record's fields.
struct AnyField {
    template <class T>
    constexpr operator T() const {
        return T{};
    }
};

template <std::size_t... I>
constexpr bool bracesTake(std::index_sequence<I...>) {
    return requires { MasterParams{(void(I), AnyField{})...}; };
}

constexpr bool listsEachOnce() {
    for (std::size_t i = 0; i < masterParamsFields.size(); ++i)
        for (std::size_t j = i + 1; j < masterParamsFields.size(); ++j)
            if (masterParamsFields[i].key == masterParamsFields[j].key ||
                masterParamsFields[i].member == masterParamsFields[j].member)
                return false;
    return true;
}

constexpr std::size_t fieldCount = masterParamsFields.size();
static_assert(bracesTake(std::make_index_sequence<fieldCount>{}) &&
                  !bracesTake(std::make_index_sequence<fieldCount + 1>{}),
              "MasterParams and masterParamsFields must list the same number of fields");
static_assert(listsEachOnce(), "masterParamsFields lists a key or a member twice");

}  // namespace

}  // namespace velmora
