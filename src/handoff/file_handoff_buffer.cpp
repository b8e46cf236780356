#include "handoff/file_handoff_buffer.h"

#include <algorithm>
#include <stdexcept>

namespace tavrin {

void FileHandoffBuffer::checkOwner() const {
    if (std::this_thread::get_id() != owner_)
        throw std::logic_error("FileHandoffBuffer used from a thread other than the one that owns it");
}

Uuid FileHandoffBuffer::enqueue(std::vector<std::filesystem::path> urls) {
    checkOwner();
    Batch batch{Uuid::random(), std::move(urls)};
    const Uuid id = batch.id;
    pendingBatches_.push_back(std::move(batch));
    return id;
}

std::vector<std::filesystem::path> FileHandoffBuffer::takeBatch(const Uuid& id) {
    checkOwner();
    const auto it = std::find_if(pendingBatches_.begin(), pendingBatches_.end(),
                                 [&](const Batch& batch) { return batch.id == id; });
    if (it == pendingBatches_.end()) return {};
    auto urls = std::move(it->urls);
    pendingBatches_.erase(it);
    return urls;
}

std::vector<std::filesystem::path> FileHandoffBuffer::drain() {
    checkOwner();
    std::vector<std::filesystem::path> all;
    for (auto& batch : pendingBatches_)
        for (auto& url : batch.urls) all.push_back(std::move(url));
    pendingBatches_.clear();
    return all;
}

}  // namespace tavrin
