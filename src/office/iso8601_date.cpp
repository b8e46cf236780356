#include "office/iso8601_date.h"

#include <chrono>

namespace tavrin {

namespace {

// Reads exactly `count` digits at `at`.
std::optional<int> digits(std::string_view text, std::size_t& at, std::size_t count) {
    if (text.size() - at < count) return std::nullopt;
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const char c = text[at + i];
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    at += count;
    return value;
}

bool expect(std::string_view text, std::size_t& at, char c) {
    if (at >= text.size() || text[at] != c) return false;
    ++at;
    return true;
}

}  // namespace

std::optional<Date> parseInternetDateTime(std::string_view text, FractionalSeconds fraction) {
    using namespace std::chrono;
    std::size_t at = 0;
    const auto y = digits(text, at, 4);
    if (!y || !expect(text, at, '-')) return std::nullopt;
    const auto mo = digits(text, at, 2);
    if (!mo || !expect(text, at, '-')) return std::nullopt;
    const auto d = digits(text, at, 2);
    if (!d || !expect(text, at, 'T')) return std::nullopt;
    const auto h = digits(text, at, 2);
    if (!h || !expect(text, at, ':')) return std::nullopt;
    const auto mi = digits(text, at, 2);
    if (!mi || !expect(text, at, ':')) return std::nullopt;
    const auto s = digits(text, at, 2);
    if (!s) return std::nullopt;
    nanoseconds fractionPart{0};
    const bool hasFraction = at < text.size() && text[at] == '.';
    if (hasFraction != (fraction == FractionalSeconds::required)) return std::nullopt;
    if (hasFraction) {
        ++at;
        std::int64_t scale = 100'000'000;
        const std::size_t start = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            fractionPart += nanoseconds{(text[at] - '0') * scale};
            scale /= 10;
            ++at;
        }
        if (at == start) return std::nullopt;
    }
    minutes offset{0};
    if (at < text.size() && text[at] == 'Z') {
        ++at;
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        const int sign = text[at] == '-' ? -1 : 1;
        ++at;
        const auto oh = digits(text, at, 2);
        if (!oh) return std::nullopt;
        expect(text, at, ':');
        const auto om = digits(text, at, 2);
        if (!om || *oh > 23 || *om > 59) return std::nullopt;
        offset = minutes{sign * (*oh * 60 + *om)};
    } else {
        return std::nullopt;
    }
    if (at != text.size()) return std::nullopt;
    const year_month_day date{year{*y}, month{static_cast<unsigned>(*mo)}, day{static_cast<unsigned>(*d)}};
    if (!date.ok() || *h > 23 || *mi > 59 || *s > 59) return std::nullopt;
    // A clock time in nanoseconds reaches only from 1677 to 2262; other years stay text.
    if (*y < 1678 || *y > 2261) return std::nullopt;
    const auto moment = sys_days{date} + hours{*h} + minutes{*mi} + seconds{*s} + fractionPart - offset;
    return time_point_cast<system_clock::duration>(moment);
}

}  // namespace tavrin
