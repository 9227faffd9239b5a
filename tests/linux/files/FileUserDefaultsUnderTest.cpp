#include "contract/UserDefaultsUnderTest.h"

#include "fakes/Recorders.h"
#include "fakes/TemporaryDirectory.h"
#include "hosts/linux/files/FileUserDefaults.h"
#include "hosts/linux/files/PosixFileManager.h"

namespace cadora::test {

namespace {

class FileUserDefaultsUnderTest : public UserDefaultsUnderTest {
public:
    UserDefaults& defaults() override { return defaults_; }

private:
    TemporaryDirectory folder_;
    PosixFileManager fileManager_{folder_.path()};
    RecordingSystemLog log_;
    FileUserDefaults defaults_{fileManager_, folder_.path() / "domain.json", log_};
};

} // namespace

std::unique_ptr<UserDefaultsUnderTest> makeUserDefaultsUnderTest() {
    return std::make_unique<FileUserDefaultsUnderTest>();
}

} // namespace cadora::test
