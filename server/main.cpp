#include "server/QueryServerRun.h"

int wmain(int argc, wchar_t** argv) {
    return QueryServer::RunQueryServer(argc, argv);
}
