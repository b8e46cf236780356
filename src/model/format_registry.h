#pragma once
// Where a format library puts its reader and writer. The pipeline is one; a format depends on
// this interface only, never on the pipeline itself.

#include <memory>

#include "model/metadata_reader.h"

namespace tavrin {

class FormatRegistry {
public:
    virtual ~FormatRegistry() = default;
    // Stores the component under every type it supports; the last registration wins.
    virtual void registerReader(std::shared_ptr<const MetadataReader> reader) = 0;
    virtual void registerWriter(std::shared_ptr<const MetadataWriter> writer) = 0;
    // Stores the component under `type` alone.
    virtual void registerReaderFor(FileType type, std::shared_ptr<const MetadataReader> reader) = 0;
    virtual void registerWriterFor(FileType type, std::shared_ptr<const MetadataWriter> writer) = 0;
    virtual bool hasReader(FileType type) const = 0;
    virtual bool hasWriter(FileType type) const = 0;
};

}  // namespace tavrin
