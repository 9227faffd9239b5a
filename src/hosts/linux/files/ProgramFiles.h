#pragma once

#include <filesystem>

// Where the running program's own files are. There must be a QCoreApplication.
namespace cadora::program_files {

std::filesystem::path helper();
std::filesystem::path sender();
std::filesystem::path exportWorker();

// What goes to the Trash: the folder of an installation, but of any other folder no more than the program,
// whatever that folder is called.
std::filesystem::path bundle();

// Removes the folder in which a user's installation stood, once that has gone and where nothing else is in
// it.
void removeEmptyLibrary(const std::filesystem::path& bundle);

// What the program remembers.
std::filesystem::path defaults();

} // namespace cadora::program_files
