#pragma once
// Failures of reading, measuring and writing, each with the French message the user sees.
#include <string>
#include <utility>
#include <variant>

namespace velmora {

struct LoudnessError {
    enum class Code {
        tooManyChannels,
        cannotRead,
        unsupportedFormat,
        corruptFile,
        tooQuiet,
        noAudioTrack,
        cannotWrite,
        diskAccess,
        tooLarge,
        // Writing failures that are not the disk's doing.
        sameAsSource,
        outputTooLargeForAiff,
        rateConversion,
        nothingToWrite,
        // A source decoded again for a master no longer gives what was measured.
        sourceChanged,
        // A video source whose picture a movie cannot carry as it is (or that has none).
        pictureNotCarried,
        // A destination whose name is longer than its file system allows.
        nameTooLong,
        // SIGINT or SIGTERM stopped the write; nothing was left behind.
        interrupted,
        // The master as written misses its target although nothing said it would.
        targetNotReached,
    };
    Code code;
    int channelCount = 0;  // payload of tooManyChannels only

    std::string message() const;
    bool operator==(const LoudnessError&) const = default;
};

// A value or the error that prevented it.
template <typename T, typename E = LoudnessError>
class Expected {
public:
    Expected(T value) : v_(std::move(value)) {}
    Expected(E error) : v_(std::move(error)) {}
    bool hasValue() const { return v_.index() == 0; }
    explicit operator bool() const { return hasValue(); }
    T& value() { return std::get<0>(v_); }
    const T& value() const { return std::get<0>(v_); }
    T& operator*() { return value(); }
    const T& operator*() const { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    const E& error() const { return std::get<1>(v_); }

private:
    std::variant<T, E> v_;
};

}  // namespace velmora
