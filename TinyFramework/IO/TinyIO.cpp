#include "TinyFramework/IO/TinyIO.h"

namespace TinyFramework {
namespace IO {

IMPLEMENT_DYNAMIC(TinyIO, TinyObject)

TinyIO::TinyIO() {}

TinyIO::~TinyIO() {}

}  // namespace IO
}  // namespace TinyFramework
