#pragma once
// A same-process channel for batches of files: a batch goes in, only its id travels on, and
// whoever holds the id takes the files out. Used on one thread, the one that made it.

#include <filesystem>
#include <thread>
#include <utility>
#include <vector>

#include "model/uuid.h"

namespace tavrin {

class FileHandoffBuffer {
public:
    struct Batch {
        Uuid id;
        std::vector<std::filesystem::path> urls;
    };

    FileHandoffBuffer() : owner_(std::this_thread::get_id()) {}

    Uuid enqueue(std::vector<std::filesystem::path> urls);
    // The files of that batch, which leaves the buffer; an unknown id gives an empty list.
    std::vector<std::filesystem::path> takeBatch(const Uuid& id);
    // Every file of every batch, in order, for recovery when ids were lost; empties the buffer.
    std::vector<std::filesystem::path> drain();
    const std::vector<Batch>& pendingBatches() const { return pendingBatches_; }

private:
    // Throws std::logic_error when called from another thread than the owner's.
    void checkOwner() const;

    std::thread::id owner_;
    std::vector<Batch> pendingBatches_;
};

}  // namespace tavrin
