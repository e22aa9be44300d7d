#pragma once

namespace QueryServer {

// The whole life of the query server: read the arguments, create the reply pipe, open the
// parent's event, run the one query, end the stream. Always returns 0: the parent judges the run
// by the bytes on the pipe.
int RunQueryServer(int argc, const wchar_t* const* argv);

}  // namespace QueryServer
