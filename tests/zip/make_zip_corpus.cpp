// Writes the starting corpus of the ZIP reader's fuzz target: small archives in each form the
// reader understands. Usage: make_zip_corpus DIRECTORY
#include <filesystem>
#include <fstream>
#include <iostream>

#include "raw_zip_builder.h"

int main(int argc, char** argv) {
    using namespace tavrin::testing;
    if (argc != 2) {
        std::cerr << "usage: make_zip_corpus DIRECTORY\n";
        return 2;
    }
    const std::filesystem::path dir = argv[1];
    std::filesystem::create_directories(dir);
    const std::string xml = "<?xml version=\"1.0\"?><Types><Default Extension=\"xml\"/></Types>";
    const std::vector<std::pair<std::string, std::string>> samples = {
        {"stored.zip", buildRawZip({{.name = "[Content_Types].xml", .data = xml}})},
        {"deflated.zip", buildRawZip({{.name = "a.xml", .data = xml, .deflate = true}, {.name = "b/", .data = ""}})},
        {"descriptor.zip", buildRawZip({{.name = "a.xml", .data = xml, .deflate = true, .dataDescriptor = true}})},
        {"zip64.zip", buildRawZip({{.name = "a.xml", .data = xml, .zip64 = true}}, {.zip64EndRecords = true})},
        {"comment.zip", buildRawZip({{.name = "a", .data = "x"}}, {.comment = "note"})},
    };
    for (const auto& [name, bytes] : samples) {
        std::ofstream out(dir / name, std::ios::binary);
        out << bytes;
    }
    return 0;
}
