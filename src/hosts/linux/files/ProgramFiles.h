#pragma once

#include <filesystem>

// Where the running program's own files are. There must be a QCoreApplication.
namespace cadora::program_files {

std::filesystem::path helper();
std::filesystem::path sender();
std::filesystem::path exportWorker();

// What goes to the Trash: the folder of an installation, but of a build folder no more than the program.
std::filesystem::path bundle();

// What the program remembers.
std::filesystem::path defaults();

} // namespace cadora::program_files
