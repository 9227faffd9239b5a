#pragma once

#include "hosts/linux/files/XDGFolders.h"
#include "hosts/linux/sign-in/URLSchemeOwnership.h"

#include <filesystem>

namespace cadora {

// The desktop's default applications, through GIO. A program that was never installed, such as one that runs
// where it was built, gets a desktop entry that does nothing but open the scheme.
class GioURLSchemeOwnership : public URLSchemeOwnership {
public:
    // `program` is the absolute path of the helper.
    GioURLSchemeOwnership(XDGFolders folders, std::filesystem::path program);

    Owner claim(Claim claim) override;

private:
    void writeEntry();

    XDGFolders folders_;
    std::filesystem::path program_;
};

} // namespace cadora
