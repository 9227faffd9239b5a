#pragma once

#include "hosts/linux/media/worker/Export.h"
#include "hosts/linux/media/worker/ExportError.h"
#include "hosts/linux/media/worker/SourceLength.h"

#include <string>

namespace cadora {

// The worker's answers: one line of JSON each, with its line break.
std::string lengthAnswer(const SourceLength& length);
std::string exportAnswer(const ExportResult& result);
std::string errorAnswer(const ExportError& error);

} // namespace cadora
