#pragma once
// Running exiftool itself: the argument that names a file, the check that the tool is there,
// and one run with its failures turned into the pipeline's words.

#include <filesystem>
#include <string>
#include <vector>

#include "exiftool/process_runner.h"

namespace tavrin {

// A file as exiftool must see it: a relative path gets a leading "./", so that a name such as
// "-all=" or "-" is never read as an option or as standard input.
std::string exifToolFileArgument(const std::filesystem::path& file);

// "-json", "-G", "-a", "-u", "-n", then the file.
std::vector<std::string> exifToolReadArguments(const std::filesystem::path& file);

// Throws PipelineError::exifToolNotAvailable unless `exifToolPath` is an executable file.
void requireExifToolAvailable(const std::string& exifToolPath);

// One run with any exit status. A program that cannot be started gives
// PipelineError::exifToolFailed("Failed to launch ExifTool: …"); a time-out, an output over the
// limit or a death by signal give PipelineError::exifToolFailed with the runner's text.
ProcessOutput runExifToolProcess(const std::string& exifToolPath, const std::vector<std::string>& arguments,
                                 const ProcessLimits& limits);

}  // namespace tavrin
