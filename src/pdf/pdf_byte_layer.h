#pragma once
// The byte-level half of PDF cleaning, independent of any PDF library: the last classic trailer,
// blanking a superseded Info dictionary in place, appending an incremental update (ISO 32000-1,
// 7.5.6) whose trailer points at a new Info object, and a scanner that decodes every string token
// outside stream bodies so that a forensic check can prove a removed value is gone.
//
// Every operation reports failure as an empty optional or false; callers treat that as a failed
// verification. Only `appendUpdate` throws. All scans are bounded and iterative.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/metadata_value.h"

namespace tavrin::pdfBytes {

using ByteView = std::span<const std::uint8_t>;

struct ObjectReference {
    std::int64_t object = 0;
    std::int64_t generation = 0;
    bool operator==(const ObjectReference&) const = default;
};

struct ParsedTrailer {
    std::string prevStartxref;                  // digits behind the last "startxref"
    std::string rootRef;                        // such as "12 0 R"
    std::optional<ObjectReference> infoRef;     // absent when /Info is no indirect reference
    std::int64_t size = 0;                      // /Size, at least 1
    std::int64_t fileSize = 0;
    bool endsWithNewline = false;               // last byte is 0x0A (a final 0x0D does not count)
    bool operator==(const ParsedTrailer&) const = default;
};

// One entry of the Info dictionary an update writes: the key without its solidus, and the value
// already in PDF syntax (from `encodePDFInfoValue`).
struct KeptInfoEntry {
    std::string pdfKey;
    std::string encoded;
};

// The trailer search reads at most this many bytes from the end of a file.
inline constexpr std::size_t trailerSearchWindow = 65536;

// Parses the last classic trailer of the file, looking only at its last 65,536 bytes.
std::optional<ParsedTrailer> parseTrailer(const std::filesystem::path& fileAt);
// The same on the tail bytes of a file of `fileSize` bytes. REQUIRES: tail.size() <= fileSize.
std::optional<ParsedTrailer> parseTrailer(ByteView tail, std::int64_t fileSize);

// The value shapes a trailer key may carry.
enum class TrailerPattern {
    reference,            // blanks, then "12 0 R"; captures all three tokens
    integer,              // blanks, then digits; captures the digits
    objectAndGeneration,  // blanks, then "12 0" followed by blanks and "R"; captures "12 0"
};
// Finds the last occurrence of `key` in `text` and matches `pattern` right behind it.
std::optional<std::string> firstCapture(TrailerPattern pattern, std::string_view key, std::string_view text);

// The bytes of an incremental update that adds one Info object holding exactly `keeping`, with a
// trailer that points at it and chains to the previous cross-reference section. Built before the
// file is touched; empty when the trailer does not parse.
std::optional<std::vector<std::uint8_t>> makeInfoOverrideUpdate(const std::filesystem::path& fileAt,
                                                                const std::vector<KeptInfoEntry>& keeping);
std::optional<std::vector<std::uint8_t>> makeInfoOverrideUpdate(const ParsedTrailer& trailer,
                                                                const std::vector<KeptInfoEntry>& keeping);

// A date as "(D:yyyyMMddHHmmss+00'00')" in UTC; a string as "<FEFF…>" in UTF-16BE (always, even
// for ASCII); a list of strings joined with ", ". Anything else, or text that is not UTF-8, gives
// an empty optional.
std::optional<std::string> encodePDFInfoValue(const MetadataValue& value);

// Appends `update` to the end of the file. Throws FileSystemError.
void appendUpdate(std::span<const std::uint8_t> update, const std::filesystem::path& toFileAt);

// Overwrites the interior of the Info dictionary that the last trailer names with blanks, in
// place: no byte moves, so the cross-reference table stays valid. True when there was nothing to
// blank or it was blanked; false when the trailer, the object or its dictionary cannot be found.
bool neutralizeSupersededInfoObject(const std::filesystem::path& atFileAt);

// Offset of the last "N G obj" with exactly one blank between tokens, bounded on both sides.
std::optional<std::size_t> lastObjectHeaderOffset(std::int64_t objectNumber, std::int64_t generation, ByteView data);
// Index of the "<<" that opens the dictionary of the object whose header starts at `from`.
std::optional<std::size_t> indexOfDictionaryOpen(ByteView data, std::size_t from);
// Index of the first ">" of the ">>" that closes a dictionary whose interior starts at
// `interiorStart`. Strings are skipped; a lone ">" is malformed.
std::optional<std::size_t> indexOfMatchingDictionaryClose(ByteView data, std::size_t interiorStart);
// Index behind the ")" that closes the literal string opened at `openParen`.
std::optional<std::size_t> skipLiteralString(ByteView data, std::size_t openParen);

struct DecodedString {
    std::string value;  // UTF-8
    std::size_t after = 0;
};

// Calls `visit` with every literal and hex string outside stream bodies, in file order. False
// when the scan had to stop early because the input forced too much rescanning (a pathological
// file): the caller must then treat the scan as not made.
bool forEachDecodedObjectString(ByteView data, const std::function<void(const std::string&)>& visit);
// Every decoded string in file order, or empty when the scan could not complete.
std::optional<std::vector<std::string>> decodedObjectStrings(ByteView data);

std::optional<DecodedString> decodeLiteralString(ByteView data, std::size_t openParen);
std::optional<DecodedString> decodeHexString(ByteView data, std::size_t openAngle);
// Decodes the escape at `backslash` into `into`; returns the bytes consumed.
std::optional<std::size_t> decodeEscape(ByteView data, std::size_t backslash, std::vector<std::uint8_t>& into);
std::size_t decodeOctalEscape(ByteView data, std::size_t backslash, std::vector<std::uint8_t>& into);
// UTF-16BE behind a FE FF mark when it decodes; otherwise each byte through PDFDocEncoding.
std::string decodePDFStringBytes(ByteView bytes);

// True when `needle` stands at `at` with a delimiter (or the data's edge) on both sides.
bool matches(std::string_view needle, ByteView data, std::size_t at);
// NUL, TAB, LF, FF, CR, SPACE, "<", ">", "[", "]" — and nothing else.
bool isPDFDelimiterOrWhitespace(std::uint8_t byte);

}  // namespace tavrin::pdfBytes
