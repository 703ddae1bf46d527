#include "VLMSDKDelayedReplies.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace vlmsdk::detail {

namespace {

using Clock = std::chrono::steady_clock;

struct Entry {
    Clock::time_point due;
    std::shared_ptr<VLMSDKCancellation> cancellation;
    std::uint64_t callbackKey = 0;
    bool cancelled = false;
    VLMSDKDelayedReplies::Answer answer;
};

}  // namespace

struct VLMSDKDelayedReplies::State {
    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false;
    bool started = false;
    std::uint64_t nextID = 1;
    std::map<std::uint64_t, Entry> entries;  // by id: the order they were scheduled in
};

VLMSDKDelayedReplies::VLMSDKDelayedReplies() : state_(std::make_shared<State>()) {}

VLMSDKDelayedReplies::~VLMSDKDelayedReplies() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
    }
    state_->wake.notify_all();
    if (!thread_.joinable()) return;
    if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();
    } else {
        thread_.join();
    }
}

void VLMSDKDelayedReplies::schedule(std::chrono::milliseconds delay, std::shared_ptr<VLMSDKCancellation> cancellation,
                                    Answer answer) {
    std::uint64_t id = 0;
    {
        std::lock_guard lock(state_->mutex);
        id = state_->nextID++;
        state_->entries.emplace(id, Entry{Clock::now() + delay, cancellation, 0, false, std::move(answer)});
        if (!state_->started) {
            state_->started = true;
            thread_ = std::thread(run, state_);
        }
    }
    state_->wake.notify_all();
    if (!cancellation) return;
    // Outside the lock: a signal given already runs the callback at once, here. The callback holds the state
    // weakly, so a cancellation that outlives this object keeps nothing of it alive.
    const std::uint64_t key = cancellation->addCallback([weak = std::weak_ptr<State>(state_), id] {
        const auto state = weak.lock();
        if (!state) return;
        {
            std::lock_guard lock(state->mutex);
            const auto found = state->entries.find(id);
            if (found != state->entries.end()) found->second.cancelled = true;
        }
        state->wake.notify_all();
    });
    if (key == 0) return;
    bool answered = false;
    {
        std::lock_guard lock(state_->mutex);
        const auto found = state_->entries.find(id);
        if (found != state_->entries.end()) {
            found->second.callbackKey = key;
        } else {
            answered = true;
        }
    }
    // Answered before the key was kept: the thread could not remove the callback, so it goes here.
    if (answered) cancellation->removeCallback(key);
}

void VLMSDKDelayedReplies::run(const std::shared_ptr<State>& state) {
    std::unique_lock lock(state->mutex);
    std::vector<std::pair<Entry, Reason>> ready;
    for (;;) {
        const auto now = Clock::now();
        std::optional<Clock::time_point> next;
        for (auto at = state->entries.begin(); at != state->entries.end();) {
            Entry& entry = at->second;
            std::optional<Reason> reason;
            if (entry.cancelled) {
                reason = Reason::Cancelled;
            } else if (state->stopping) {
                reason = Reason::ShutDown;
            } else if (entry.due <= now) {
                reason = Reason::Due;
            }
            if (!reason) {
                next = next ? std::min(*next, entry.due) : entry.due;
                ++at;
                continue;
            }
            ready.emplace_back(std::move(entry), *reason);
            at = state->entries.erase(at);
        }
        if (ready.empty()) {
            if (state->stopping) return;
            if (next) {
                state->wake.wait_until(lock, *next);
            } else {
                state->wake.wait(lock);
            }
            continue;
        }
        // Those due first are answered first; a stable sort keeps the scheduling order among equals.
        std::stable_sort(ready.begin(), ready.end(),
                         [](const auto& a, const auto& b) { return a.first.due < b.first.due; });
        lock.unlock();
        for (auto& [entry, reason] : ready) {
            if (entry.callbackKey != 0) entry.cancellation->removeCallback(entry.callbackKey);
            entry.answer(reason);
        }
        ready.clear();  // what the answers held goes before the lock is taken again
        lock.lock();
    }
}

}  // namespace vlmsdk::detail
