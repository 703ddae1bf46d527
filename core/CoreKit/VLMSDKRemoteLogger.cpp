#include <VLMSDKCoreKit/VLMSDKRemoteLogger.h>

#include <algorithm>

VLMSDKRemoteLogger& VLMSDKRemoteLogger::sharedLogger() {
    static VLMSDKRemoteLogger* logger = new VLMSDKRemoteLogger;
    return *logger;
}

VLMSDKRemoteLogger::VLMSDKRemoteLogger() : VLMSDKLogger(static_cast<int>(VLMSDKLogLevel::Info)) {}

void VLMSDKRemoteLogger::write(VLMSDKLogRecord&& record) {
    std::lock_guard lock(mutex_);
    queue_.push_back(std::move(record));
    trimLocked();
}

void VLMSDKRemoteLogger::trimLocked() {
    while (queue_.size() > capacity_) {
        queue_.pop_front();
        ++dropped_;
    }
}

std::vector<VLMSDKLogRecord> VLMSDKRemoteLogger::drain() {
    std::lock_guard lock(mutex_);
    std::vector<VLMSDKLogRecord> records(std::make_move_iterator(queue_.begin()), std::make_move_iterator(queue_.end()));
    queue_.clear();
    return records;
}

std::size_t VLMSDKRemoteLogger::droppedCount() const {
    std::lock_guard lock(mutex_);
    return dropped_;
}

std::size_t VLMSDKRemoteLogger::capacity() const {
    std::lock_guard lock(mutex_);
    return capacity_;
}

void VLMSDKRemoteLogger::setCapacity(std::size_t capacity) {
    std::lock_guard lock(mutex_);
    capacity_ = std::max<std::size_t>(capacity, 1);
    trimLocked();
}
