#pragma once
// The link handler of the command line with the queue: "enqueue" links add their files to the
// user's queue through the import service (the default preset applies as the settings say).

#include "open_url_handler.h"

namespace tavrin::cli {

class QueueURLHandler : public CommandLineURLHandler {
public:
    int enqueue(const AdmittedFiles& files) override;
};

}  // namespace tavrin::cli
