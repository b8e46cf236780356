#include "handoff/url_sequence_opener.h"

#include <mutex>

namespace tavrin {

struct URLSequenceOpener::Shared {
    std::mutex mutex;
    // Trampoline state: an answer that arrives while `openFrom` is still inside `openURL` on the
    // same call chain is recorded here instead of recursing.
    bool inside = false;
    bool answeredInside = false;
};

std::shared_ptr<URLSequenceOpener> URLSequenceOpener::make(std::vector<std::string> urls, OpenURL openURL,
                                                           std::function<void()> completion, PostDelayed postDelayed,
                                                           std::optional<std::chrono::milliseconds> timeout) {
    std::shared_ptr<URLSequenceOpener> opener(new URLSequenceOpener());
    opener->urls_ = std::move(urls);
    opener->openURL_ = std::move(openURL);
    opener->completion_ = std::move(completion);
    opener->postDelayed_ = std::move(postDelayed);
    opener->timeout_ = opener->postDelayed_ ? timeout : std::nullopt;
    opener->answered_.assign(opener->urls_.size(), 0);
    opener->shared_ = std::make_shared<Shared>();
    return opener;
}

void URLSequenceOpener::open() { openFrom(0); }

bool URLSequenceOpener::claim(std::size_t index) {
    std::lock_guard lock(shared_->mutex);
    if (answered_[index]) return false;
    answered_[index] = 1;
    return true;
}

void URLSequenceOpener::openFrom(std::size_t index) {
    auto self = shared_from_this();
    while (true) {
        if (index >= urls_.size()) {
            if (completion_) completion_();
            return;
        }
        auto advance = [self, index] {
            if (self->postDelayed_) {
                self->postDelayed_(std::chrono::milliseconds(0), [self, index] { self->openFrom(index + 1); });
                return;
            }
            std::unique_lock lock(self->shared_->mutex);
            if (self->shared_->inside) {
                self->shared_->answeredInside = true;
                return;
            }
            lock.unlock();
            self->openFrom(index + 1);
        };
        if (timeout_) {
            postDelayed_(*timeout_, [self, index, advance] {
                if (self->claim(index)) advance();
            });
        }
        {
            std::lock_guard lock(shared_->mutex);
            shared_->inside = true;
            shared_->answeredInside = false;
        }
        openURL_(urls_[index], [self, index, advance](bool) {
            if (self->claim(index)) advance();
        });
        std::unique_lock lock(shared_->mutex);
        shared_->inside = false;
        if (!shared_->answeredInside) return;
        // The answer came during the call: continue here rather than one frame deeper.
        lock.unlock();
        ++index;
    }
}

}  // namespace tavrin
