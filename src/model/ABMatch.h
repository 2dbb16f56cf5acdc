#pragma once
// The loudness match of the A/B comparison while a file plays: the gain that brings the source
// to the loudness of the live chain's output. Measured on a thread of its own whenever the file or
// the chain changes, so the window never waits for it; in the meantime the figures of what has
// been read so far stand in, and before them the last match of the same file, or none. Main
// thread, apart from the measuring threads it owns.
#include <QString>
#include <QTimer>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "mastering/MasterParams.h"
#include "model/FileItem.h"

namespace velmora {

class ABMatcher {
public:
    // `post` runs a function on the main thread (the model's queue): a finished measurement
    // comes back through it.
    explicit ABMatcher(std::function<void(std::function<void()>)> post);
    ~ABMatcher();  // cancels and joins the measuring threads
    ABMatcher(const ABMatcher&) = delete;
    ABMatcher& operator=(const ABMatcher&) = delete;

    // The match for `item` through `params` from now on: known at once when the chain leaves the
    // sound as it is or this pair was measured last, else measured once the chain has stood still
    // for settleMilliseconds (a knob being turned asks many times), and `changed` called on the
    // main thread with each new figure. A measurement of an older request is dropped.
    void request(const FileItem& item, const MasterParams& params, std::function<void()> changed);

    // dB added to the source side: the match, or while it is measured the estimate.
    double gainDB() const { return gainDB_; }
    bool measured() const { return measured_; }
    // Why the chain's loudness could not be measured (the source then stays as it is).
    const std::optional<QString>& failure() const { return failure_; }

    static constexpr int settleMilliseconds = 300;

private:
    void start();  // the measuring thread of the latest request
    struct Run {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> cancelled, finished;
    };
    void reap(bool all);  // joins the threads that are done (all: every one, cancelled first)

    std::function<void(std::function<void()>)> post_;
    std::vector<Run> runs_;
    std::shared_ptr<std::atomic<bool>> current_;  // the running request's cancel flag
    std::string path_;
    bool isVideo_ = false;
    std::size_t channels_ = 0, frames_ = 0;
    double sampleRate_ = 0;
    MasterParams params_;
    std::function<void()> changed_;
    QTimer settle_;
    bool asked_ = false;
    double gainDB_ = 0;
    bool measured_ = true;
    std::optional<QString> failure_;
};

}  // namespace velmora
