#pragma once
// Opens URLs strictly one after the other, each waiting for the answer to the one before, and
// reports once at the end. The opener keeps itself alive through the callbacks it hands out.

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

// Runs `work` after `delay` on the owner's thread (an event loop's timer, or a test's fake clock).
using PostDelayed = std::function<void(std::chrono::milliseconds delay, std::function<void()> work)>;

class URLSequenceOpener : public std::enable_shared_from_this<URLSequenceOpener> {
public:
    // Opens one URL and calls `done` once, with whether it worked, from any thread.
    using OpenURL = std::function<void(const std::string& url, std::function<void(bool succeeded)> done)>;

    // Without `postDelayed`, each next URL opens from inside the previous answer (iteratively when
    // answers come at once, so a long list never deepens the stack). With it, each next URL is
    // posted, and an answer that has not come within `timeout` counts as a failure: the next URL
    // opens and the late answer is dropped.
    static std::shared_ptr<URLSequenceOpener> make(std::vector<std::string> urls, OpenURL openURL,
                                                   std::function<void()> completion, PostDelayed postDelayed = {},
                                                   std::optional<std::chrono::milliseconds> timeout = std::nullopt);

    const std::vector<std::string>& urls() const { return urls_; }
    // Starts the sequence; `completion` runs once after the last answer (at once for no URLs).
    // The result of each opening is ignored.
    void open();

private:
    URLSequenceOpener() = default;
    void openFrom(std::size_t index);
    // Called for the answer to URL `index`; true when it was the first answer for that URL.
    bool claim(std::size_t index);

    std::vector<std::string> urls_;
    OpenURL openURL_;
    std::function<void()> completion_;
    PostDelayed postDelayed_;
    std::optional<std::chrono::milliseconds> timeout_;
    std::vector<char> answered_;  // one flag per URL, guarded by the claim's lock
    struct Shared;
    std::shared_ptr<Shared> shared_;
};

}  // namespace tavrin
