#pragma once
// Starting other programs: always posix_spawn with an argument vector, never a shell, so no text
// given to a program is ever read as shell syntax.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavrin {

// The executable that `name` names: itself when it holds a "/", else the first match on PATH.
std::optional<std::filesystem::path> findExecutable(std::string_view name);

class ProgramLauncher {
public:
    virtual ~ProgramLauncher() = default;
    virtual bool isInstalled(std::string_view program) const = 0;
    // Starts the program and does not wait for it; false when it could not be started.
    virtual bool launch(const std::vector<std::string>& argv) = 0;
    // Starts the program and waits for it; its exit status, or none when it could not be started
    // or did not exit normally.
    virtual std::optional<int> run(const std::vector<std::string>& argv) = 0;
};

// The real launcher. Standard input is /dev/null; output goes where the caller's goes. Launched
// programs are reaped by a detached thread, so none is left a zombie.
class SpawnProgramLauncher final : public ProgramLauncher {
public:
    bool isInstalled(std::string_view program) const override { return findExecutable(program).has_value(); }
    bool launch(const std::vector<std::string>& argv) override;
    std::optional<int> run(const std::vector<std::string>& argv) override;
};

// Starts a program; its process id, or none.
std::optional<int> spawnProgram(const std::vector<std::string>& argv);
// Waits for a started program; its exit status, or none when it did not exit normally.
std::optional<int> waitForProgram(int pid);

}  // namespace tavrin
