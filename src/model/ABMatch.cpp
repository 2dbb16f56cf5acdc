#include "model/ABMatch.h"

#include "mastering/LiveChainLoudness.h"
#include "model/GiveWay.h"
#include "model/MasterTask.h"

namespace velmora {

ABMatcher::ABMatcher(std::function<void(std::function<void()>)> post) : post_(std::move(post)) {
    settle_.setSingleShot(true);
    settle_.setInterval(settleMilliseconds);
    QObject::connect(&settle_, &QTimer::timeout, [this] { start(); });
}

ABMatcher::~ABMatcher() { reap(true); }

void ABMatcher::reap(bool all) {
    for (auto it = runs_.begin(); it != runs_.end();) {
        if (all) it->cancelled->store(true);
        if (all || it->finished->load(std::memory_order_acquire)) {
            it->thread.join();
            it = runs_.erase(it);
        } else {
            ++it;
        }
    }
}

void ABMatcher::request(const FileItem& item, const MasterParams& params, std::function<void()> changed) {
    reap(false);
    if (asked_ && item.url == path_ && params == params_) return;
    const bool sameFile = asked_ && item.url == path_;
    asked_ = true;
    path_ = item.url;
    params_ = params;
    if (current_) current_->store(true);  // its answer would be of an older chain
    current_.reset();
    settle_.stop();
    failure_.reset();
    if (liveChainIsNeutral(params)) {
        gainDB_ = 0;
        measured_ = true;
        return;
    }
    // Until the first figures come: the same file's last match, a chain moved a little giving a
    // loudness close to it; a new file starts level.
    if (!sameFile) gainDB_ = 0;
    measured_ = false;
    isVideo_ = item.isVideo;
    channels_ = item.channelCount();
    frames_ = item.frameTotal;
    sampleRate_ = item.sampleRate;
    changed_ = std::move(changed);
    settle_.start();
}

void ABMatcher::start() {
    reap(false);
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    auto finished = std::make_shared<std::atomic<bool>>(false);
    current_ = cancelled;
    std::shared_ptr<const Programme> source = programmeFor(path_, isVideo_, channels_, frames_, sampleRate_);
    std::thread thread([this, source, params = params_, cancelled, finished, changed = changed_] {
        // Reading a whole film beside the listening: never before the sound or the window.
        giveWayToTheInterface();
        // A long file's first minutes already say much of its match: each figure so far
        // replaces the estimate until the whole file is read.
        const auto measured = measureLiveChain(*source, params, *cancelled, [&](const LiveChainLoudness& sofar) {
            post_([this, gain = sofar.matchGainDB(), cancelled, changed] {
                if (current_ != cancelled) return;
                gainDB_ = gain;
                if (changed) changed();
            });
        });
        if (!cancelled->load()) {
            post_([this, measured, cancelled, changed] {
                if (current_ != cancelled) return;  // asked again since
                current_.reset();
                measured_ = true;
                if (measured) {
                    gainDB_ = measured->matchGainDB();
                } else {
                    gainDB_ = 0;
                    failure_ = QString::fromStdString(measured.error().message());
                }
                if (changed) changed();
            });
        }
        finished->store(true, std::memory_order_release);
    });
    runs_.push_back({std::move(thread), cancelled, finished});
}

}  // namespace velmora
