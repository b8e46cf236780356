#pragma once
// The guard of every read of untrusted data: each length, offset and count taken from a file is
// checked with `enforce` before it is used.

#include <utility>

namespace tavrin {

// Throws the error type `failure` belongs to, made from `failure` and `detail`, unless
// `condition` holds. An error type takes part by declaring, next to itself,
// `Error errorFor(Error::Case);` (a declaration only: it names the type).
template <typename Case, typename... Detail>
inline void enforce(bool condition, Case failure, Detail&&... detail) {
    using Error = decltype(errorFor(failure));
    if (!condition) throw Error(failure, std::forward<Detail>(detail)...);
}

}  // namespace tavrin
