// tavrin-app: the desktop app.
#include "app_main.h"

int main(int argc, char** argv) { return tavrin::runApp(argc, argv); }
