#include "model/json_nesting.h"

namespace tavrin {

bool jsonNestingWithin(std::string_view text, int maximumDepth) {
    int depth = 0;
    bool inString = false, escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) escaped = false;
            else if (c == '\\') escaped = true;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maximumDepth) return false;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

}  // namespace tavrin
