#pragma once
// The program's front: reads the command line, hands links to a running app or becomes the app.
//
//   tavrin-app [FILE...]                     open the window; the files join the queue
//   tavrin-app --screenshot PNG [--state S]  draw the window off screen in a named state
//   tavrin-app --bench-startup               print the time to the first painted window
//   tavrin-app --bench-queue N               N files in the queue: print sorting and scrolling times
//   tavrin-app --bench-run N                 clean N files: print the longest stall of the window's loop

namespace tavrin {

int runApp(int argc, char** argv);

}  // namespace tavrin
