#include "services/event_loop.h"

#include <cstdio>
#include <cstdlib>

namespace tavrin {

void EventLoop::assertOnLoopThread(const char* what) const {
    if (isCurrentThread()) return;
    // A main-actor service called from a worker is a programming error whose effects (records
    // changed from two threads) would be silent; stop at once instead.
    std::fprintf(stderr, "tavrin: %s must run on the main event loop's thread\n", what);
    std::abort();
}

}  // namespace tavrin
