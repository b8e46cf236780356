#pragma once
// The one file access error lives in the model, where the store and the services both reach it.
#include "model/file_access_error.h"
