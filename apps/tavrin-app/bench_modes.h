#pragma once
// The app's own measurements, printed as "name: value" lines for ./run bench.

#include <chrono>

namespace tavrin {

class AppController;

// Time from the start of the process to the first paint of the window.
int benchStartup(AppController& controller, std::chrono::steady_clock::time_point started);
// A queue of `count` files: the time to load it, to sort by each column, and to scroll through it.
int benchQueue(int count);
// Cleans `count` files into copies; the longest lateness of a 10 ms timer on the window's loop.
int benchRun(int count);

}  // namespace tavrin
