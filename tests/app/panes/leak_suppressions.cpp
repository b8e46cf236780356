// Fontconfig keeps its configuration for the life of the process and never frees it; Qt loads it
// to lay out text off screen. That is the library's own cache, not a leak of ours.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
