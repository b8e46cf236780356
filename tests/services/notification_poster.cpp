// A second process for the notification tests: posts the named announcements on the bus at
// ADDRESS, in order, then exits. Usage: notification_poster ADDRESS NAME...

#include <cstdio>
#include <string>

#include "services/manual_event_loop.h"
#include "services/notification_service.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: notification_poster ADDRESS NAME...\n");
        return 2;
    }
    tavrin::ManualEventLoop loop;
    tavrin::NotificationService service(loop, std::string(argv[1]));
    for (int i = 2; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "queueUpdated") service.postQueueUpdated();
        else if (name == "processingComplete") service.postProcessingComplete();
        else if (name == "presetChanged") service.postPresetChanged();
        else return 2;
    }
    return service.isConnected() ? 0 : 1;
}
