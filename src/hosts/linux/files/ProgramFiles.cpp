#include "hosts/linux/files/ProgramFiles.h"

#include <QCoreApplication>
#include <QStandardPaths>

#include <system_error>

namespace cadora::program_files {

namespace {

std::filesystem::path folder() {
    return QCoreApplication::applicationDirPath().toStdString();
}

} // namespace

std::filesystem::path helper() {
    return QCoreApplication::applicationFilePath().toStdString();
}

std::filesystem::path sender() {
    return folder() / "cadora-send";
}

std::filesystem::path exportWorker() {
    return folder() / "cadora-export";
}

std::filesystem::path bundle() {
    std::filesystem::path installation = folder().parent_path();
    std::error_code error;
    const bool isUsers = std::filesystem::is_regular_file(
        installation / "share/registration/com.norvelant.cadora.mac.desktop", error);
    const std::filesystem::path library = installation.parent_path();
    const bool isForAllUsers = installation.filename() == "cadora-helper" && library.filename() == "lib" &&
                               library.parent_path().filename() == "usr";
    return isUsers || isForAllUsers ? installation : helper();
}

void removeEmptyLibrary(const std::filesystem::path& bundle) {
    const std::filesystem::path library = bundle.parent_path();
    std::error_code error;
    if (library.filename() == "lib" && library.parent_path().filename() == ".local" &&
        !std::filesystem::exists(bundle, error)) {
        // Fails where it holds anything.
        std::filesystem::remove(library, error);
    }
}

std::filesystem::path defaults() {
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return std::filesystem::path(config.toStdString()) / "com.norvelant.cadora.mac" / "defaults.json";
}

} // namespace cadora::program_files
