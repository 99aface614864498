#include "Support/TemporaryFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace radio {

TemporaryFile::TemporaryFile() : m_path(std::filesystem::temp_directory_path() / "RadioUnitController.XXXXXX") {
    const int descriptor = mkstemp(m_path.data());
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "temporary file " + m_path);
    }
    close(descriptor);
}

TemporaryFile::~TemporaryFile() {
    unlink(m_path.c_str());
}

} // namespace radio
