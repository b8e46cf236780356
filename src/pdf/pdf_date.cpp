#include "pdf/pdf_date.h"

namespace tavrin {

namespace {

// Reads exactly `count` digits at `i`, advancing it.
std::optional<int> digits(std::string_view s, std::size_t& i, std::size_t count) {
    if (s.size() - i < count) return std::nullopt;
    int value = 0;
    for (std::size_t k = 0; k < count; ++k) {
        const char c = s[i + k];
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    i += count;
    return value;
}

bool atDigit(std::string_view s, std::size_t i) { return i < s.size() && s[i] >= '0' && s[i] <= '9'; }

}  // namespace

std::optional<Date> parsePDFDate(std::string_view text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.remove_suffix(1);
    if (text.starts_with("D:")) text.remove_prefix(2);
    std::size_t i = 0;
    auto year = digits(text, i, 4);
    if (!year) return std::nullopt;
    int field[5] = {1, 1, 0, 0, 0};  // month, day, hour, minute, second
    static constexpr int maximum[5] = {12, 31, 23, 59, 59};
    static constexpr int minimum[5] = {1, 1, 0, 0, 0};
    for (int f = 0; f < 5 && atDigit(text, i); ++f) {
        auto v = digits(text, i, 2);
        if (!v || *v < minimum[f] || *v > maximum[f]) return std::nullopt;
        field[f] = *v;
    }
    int offsetMinutes = 0;
    if (i < text.size()) {
        const char sign = text[i++];
        if (sign == '+' || sign == '-') {
            int hours = 0;
            int minutes = 0;
            if (atDigit(text, i)) {
                auto h = digits(text, i, 2);
                if (!h || *h > 23) return std::nullopt;
                hours = *h;
                if (i < text.size() && text[i] == '\'') ++i;
                if (atDigit(text, i)) {
                    auto m = digits(text, i, 2);
                    if (!m || *m > 59) return std::nullopt;
                    minutes = *m;
                }
                if (i < text.size() && text[i] == '\'') ++i;
            }
            offsetMinutes = (hours * 60 + minutes) * (sign == '-' ? -1 : 1);
        } else if (sign == 'Z') {
            // Writers put "Z00'00'" as often as a bare "Z"; the rest carries nothing.
            i = text.size();
        } else {
            return std::nullopt;
        }
        if (i != text.size()) return std::nullopt;
    }
    using namespace std::chrono;
    const year_month_day ymd{std::chrono::year{*year}, month{static_cast<unsigned>(field[0])},
                             day{static_cast<unsigned>(field[1])}};
    // A clock time in nanoseconds reaches only from 1677 to 2262; other years stay text.
    if (!ymd.ok() || *year < 1678 || *year > 2261) return std::nullopt;
    const auto local = sys_days{ymd} + hours{field[2]} + minutes{field[3]} + seconds{field[4]};
    return time_point_cast<system_clock::duration>(local - minutes{offsetMinutes});
}

}  // namespace tavrin
