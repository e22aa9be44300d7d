#include "tools/TestDecoders/TestDecodersSetup.h"

namespace TestDecoders {

ScopedDecoderInstall::~ScopedDecoderInstall() {
    std::wstring ignored;
    Restore(&ignored);
}

bool ScopedDecoderInstall::Install(std::wstring* error) {
    // A second Install before Restore must not forget that the first found them absent.
    m_uninstallOnRestore = m_uninstallOnRestore || !QueryDecoderStatus().Installed();
    return InstallDecoders(error);
}

bool ScopedDecoderInstall::Restore(std::wstring* error) {
    if (!m_uninstallOnRestore) {
        return true;
    }
    m_uninstallOnRestore = false;
    return UninstallDecoders(error);
}

}  // namespace TestDecoders
