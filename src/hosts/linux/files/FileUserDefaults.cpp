#include "hosts/linux/files/FileUserDefaults.h"

#include "base/Json.h"

#include <cmath>
#include <limits>
#include <utility>

namespace cadora {

namespace {

json::Record encoded(const PropertyValue& value) {
    if (const auto* dictionary = std::get_if<PropertyDictionary>(&value)) {
        json::Record object = json::Record::object();
        for (const auto& [key, element] : *dictionary) {
            object[key] = encoded(element);
        }
        return object;
    }
    if (const auto* number = std::get_if<double>(&value)) {
        if (!std::isfinite(*number)) {
            throw json::EncodingError("a number is not finite");
        }
        return *number;
    }
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        return *number;
    }
    if (const auto* flag = std::get_if<bool>(&value)) {
        return *flag;
    }
    return std::get<std::string>(value);
}

std::optional<PropertyValue> decoded(const json::Record& value) {
    if (value.is_boolean()) {
        return value.get<bool>();
    }
    if (value.is_number_unsigned() &&
        value.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return std::nullopt;
    }
    if (value.is_number_integer()) {
        return value.get<std::int64_t>();
    }
    if (value.is_number_float()) {
        return value.get<double>();
    }
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (!value.is_object()) {
        return std::nullopt;
    }
    PropertyDictionary dictionary;
    for (const auto& [key, element] : value.items()) {
        auto property = decoded(element);
        if (!property) {
            return std::nullopt;
        }
        dictionary.emplace(key, *std::move(property));
    }
    return dictionary;
}

json::Record parsedObject(const std::string& bytes) {
    json::Record object = json::parseRecord(bytes);
    json::requireObject(object, "the user defaults");
    return object;
}

} // namespace

FileUserDefaults::FileUserDefaults(FileManager& fileManager, std::filesystem::path file, SystemLog& systemLog)
    : fileManager_(fileManager), file_(std::move(file)), systemLog_(systemLog) {}

std::optional<PropertyValue> FileUserDefaults::object(const std::string& key) {
    const std::lock_guard guard(mutex_);
    try {
        const json::Record object = parsedObject(fileManager_.contents(file_));
        const auto found = object.find(key);
        return found == object.end() ? std::nullopt : decoded(*found);
    } catch (const Error&) {
        return std::nullopt;
    }
}

void FileUserDefaults::set(const std::string& key, std::optional<PropertyValue> value) {
    const std::lock_guard guard(mutex_);
    try {
        setOrThrow(key, value);
    } catch (const Error& error) {
        systemLog_.log("[Cadora Helper] the setting “" + key + "” was not stored: " + error.text());
    }
}

void FileUserDefaults::setOrThrow(const std::string& key, const std::optional<PropertyValue>& value) {
    json::Record object = json::Record::object();
    bool damaged = false;
    if (fileManager_.fileExists(file_)) {
        try {
            object = parsedObject(fileManager_.contents(file_));
        } catch (const Error&) {
            damaged = true;
        }
    }
    const std::string before = json::write(object);
    if (value) {
        object[key] = encoded(*value);
    } else {
        object.erase(key);
    }
    const std::string bytes = json::write(object);
    if (bytes == before) {
        return;
    }
    if (damaged) {
        keepDamagedFile();
    }
    fileManager_.createDirectory(file_.parent_path());
    fileManager_.writeAtomically(file_, bytes);
}

void FileUserDefaults::keepDamagedFile() {
    std::filesystem::path copy;
    int number = 0;
    do {
        copy = file_;
        copy += ".damaged-" + std::to_string(++number);
    } while (fileManager_.fileExists(copy));
    fileManager_.copyItem(file_, copy);
}

} // namespace cadora
