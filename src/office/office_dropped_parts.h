#pragma once
// What keeps a package valid after whole parts have left it: relationships and content-type
// overrides that name a dropped part are removed, so that no consumer finds a reference to a
// part that is not there.

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace tavrin {

// The ".rels" part at `relsPath` without the relationships whose target, resolved against the
// part the file belongs to, is one of `droppedArchivePaths` (compared in lower case). External
// targets never match. Nothing when the part cannot be parsed; the text unchanged when nothing
// matched.
std::optional<std::string> scrubDanglingRelationships(std::string_view relsXML, std::string_view relsPath,
                                                      const std::set<std::string>& droppedArchivePaths);

// "[Content_Types].xml" without the `Override` elements whose part name is dropped. `Default`
// elements stay. Nothing when the part cannot be parsed; the text unchanged when nothing matched.
std::optional<std::string> scrubDanglingContentTypeOverrides(std::string_view contentTypesXML,
                                                             const std::set<std::string>& droppedArchivePaths);

// "/" + base + target with "." and ".." collapsed and the leading "/" removed; a ".." that would
// climb above the package root is dropped.
std::string resolvedPartPath(std::string_view base, std::string_view target);

}  // namespace tavrin
