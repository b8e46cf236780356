#pragma once
// What the queue and preset services announce after each change, so that other processes read
// the store again. The announcement carries no data. The D-Bus notification service implements
// this; programs without a bus, and tests, give their own.

namespace tavrin {

class ChangeNotifying {
public:
    virtual ~ChangeNotifying() = default;
    virtual void postQueueUpdated() = 0;
    virtual void postProcessingComplete() = 0;
    virtual void postPresetChanged() = 0;
};

// Announces nothing.
class SilentChangeNotifier final : public ChangeNotifying {
public:
    void postQueueUpdated() override {}
    void postProcessingComplete() override {}
    void postPresetChanged() override {}
};

}  // namespace tavrin
