// tavrin-share: the window that hands files from other programs to Tavrin.
#include "share_main.h"

int main(int argc, char** argv) { return tavrin::runShare(argc, argv); }
