// tavrin: inspect and clean the metadata of files from the command line.
#include "cli.h"

int main(int argc, char** argv) { return tavrin::cli::run(argc, argv); }
