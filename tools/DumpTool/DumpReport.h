#pragma once

// What DumpTool prints about a crash dump: a text for a person, or the same facts as JSON.

#include "tools/DumpTool/DumpReader.h"

#include <string>
#include <vector>

namespace DumpTool {

// "0x" and the value in hexadecimal, padded to `digits`.
std::string Hex(uint64_t value, int digits);

// One stack frame as a line shows it: "module!function+0xdisplacement (file:line)" when the
// symbols know the function, "module+0xoffset" when only the module is known, else the address.
std::string DescribeLocation(const DumpFrame& frame);

std::string FormatTextReport(const std::wstring& dumpPath, const DumpReader& reader,
                             const std::vector<DumpFrame>& stack);
std::string FormatJsonReport(const std::wstring& dumpPath, const DumpReader& reader,
                             const std::vector<DumpFrame>& stack);

}  // namespace DumpTool
