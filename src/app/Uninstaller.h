#pragma once

#include <filesystem>

namespace cadora {

// Takes the program off the user's computer. Main actor only.
class Uninstaller {
public:
    Uninstaller() = delete;

    // Signs out, deletes the program's data with the outbox, takes the entry out of the desktop's menus,
    // makes the desktop forget the program, moves it to the Trash, and ends the process soon after. Blocks
    // while the registration tool runs. No step's failure is shown or stops the next ones, but for a system
    // that knows no place for applications' data, which ends the process at once.
    static void run();

private:
    static void unregisterLaunchServices(const std::filesystem::path& bundle);
};

} // namespace cadora
