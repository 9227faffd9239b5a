#include "hosts/linux/files/ProgramFiles.h"

#include <QCoreApplication>
#include <QStandardPaths>

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
    return installation.filename() == "cadora-helper" ? installation : helper();
}

std::filesystem::path defaults() {
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return std::filesystem::path(config.toStdString()) / "com.norvelant.cadora.mac" / "defaults.json";
}

} // namespace cadora::program_files
