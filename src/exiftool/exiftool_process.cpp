#include "exiftool/exiftool_process.h"

#include "model/pipeline_error.h"

namespace tavrin {

std::string exifToolFileArgument(const std::filesystem::path& file) {
    if (file.is_absolute()) return file.string();
    return "./" + file.string();
}

std::vector<std::string> exifToolReadArguments(const std::filesystem::path& file) {
    return {"-json", "-G", "-a", "-u", "-n", exifToolFileArgument(file)};
}

void requireExifToolAvailable(const std::string& exifToolPath) {
    if (!isExecutableFile(exifToolPath)) throw PipelineError::exifToolNotAvailable();
}

ProcessOutput runExifToolProcess(const std::string& exifToolPath, const std::vector<std::string>& arguments,
                                 const ProcessLimits& limits) {
    try {
        return runProcess(exifToolPath, arguments, limits);
    } catch (const ProcessError& e) {
        if (e.errorCase() == ProcessError::Case::launchFailed)
            throw PipelineError::exifToolFailed("Failed to launch ExifTool: " + e.reason());
        throw PipelineError::exifToolFailed(e.description());
    } catch (const std::exception& e) {
        throw PipelineError::exifToolFailed(e.what());
    }
}

}  // namespace tavrin
