// Fuzz build only. clang (14 and 16 alike) rejects qpdf 11's JSON header in C++20 mode against
// libstdc++ 12: a nested class's defaulted destructor instantiates std::vector<JSON> while JSON
// is still incomplete. Nothing of ours uses qpdf's JSON, and qpdf's other headers name it only
// in declarations, so the fuzz build stands in a forward declaration for that header.
#pragma once
#define JSON_HH
class JSON;
