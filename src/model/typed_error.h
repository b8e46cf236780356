#pragma once
// What every component's error holds: which case it is, the detail that follows the fixed text,
// and the text people see. Each error type keeps its texts in its own `description()`, one
// `switch` over every case with no `default`, and hands the text over once its own members are set.

#include <exception>
#include <string>
#include <utility>

namespace tavrin {

// `text`, then `detail` in brackets when there is one: "Image data is damaged (a box overruns its parent)".
inline std::string withDetail(std::string text, const std::string& detail) {
    if (!detail.empty()) text += " (" + detail + ")";
    return text;
}

template <typename CaseType>
class TypedError : public std::exception {
public:
    using Case = CaseType;

    Case errorCase() const { return case_; }
    // What follows the fixed text (what a parser or library said, a name, a reason), or empty.
    const std::string& detail() const { return detail_; }
    const char* what() const noexcept override { return text_.c_str(); }

protected:
    TypedError(Case c, std::string detail) : case_(c), detail_(std::move(detail)) {}
    // REQUIRES: called by the derived constructor, once its own members are set, with its
    // `description()`.
    void setText(std::string text) { text_ = std::move(text); }

private:
    Case case_;
    std::string detail_;
    std::string text_;
};

}  // namespace tavrin
