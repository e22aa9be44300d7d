#include "DShowCapture/DShowPropertyDlg.h"

namespace DShow {

void CloseProperty(IBaseFilter* /*filter*/) {}

}  // namespace DShow
