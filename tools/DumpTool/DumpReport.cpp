#include "tools/DumpTool/DumpReport.h"

#include "TinyFramework/Common/TinyTextConversion.h"

#include <nlohmann/json.hpp>

#include <cinttypes>
#include <cstdio>
#include <sstream>

namespace DumpTool {

namespace {

using TinyFramework::ToUtf8;

constexpr uint32_t kAccessViolation = 0xC0000005;
constexpr uint32_t kInPageError = 0xC0000006;

// The first parameter of an access violation says what the faulting instruction tried.
const char* AccessKind(uint64_t kind) {
    switch (kind) {
        case 0:
            return "read";
        case 1:
            return "write";
        case 8:
            return "execute";
        default:
            return "access";
    }
}

bool HasAccessDetail(const DumpException& exception) {
    return (exception.code == kAccessViolation || exception.code == kInPageError) &&
           exception.parameters.size() >= 2;
}

// The crash address, named by its module when the dump (or an added image) has one.
std::string LocationOfAddress(const DumpReader& reader, uint64_t address) {
    std::string text = Hex(address, 16);
    if (const DumpModule* module = reader.ModuleAt(address)) {
        text += " " + ToUtf8(FileNameOf(module->path)) + "+" + Hex(address - module->base, 0);
    }
    return text;
}

std::string ExceptionLine(uint32_t code) {
    const std::string hex = Hex(code, 8);
    const std::string name = ExceptionName(code);
    return name == hex ? hex : hex + " " + name;
}

}  // namespace

std::string Hex(uint64_t value, int digits) {
    char text[32];
    snprintf(text, sizeof(text), "0x%0*" PRIx64, digits, value);
    return text;
}

std::string DescribeLocation(const DumpFrame& frame) {
    const std::string module = ToUtf8(frame.module);
    std::string text;
    if (!frame.function.empty()) {
        text = (module.empty() ? "" : module + "!") + frame.function + "+" +
               Hex(frame.displacement, 0);
    } else if (!module.empty()) {
        text = module + "+" + Hex(frame.moduleOffset, 0);
    } else {
        text = "(no module)";
    }
    if (!frame.file.empty()) {
        text += " (" + ToUtf8(frame.file) + ":" + std::to_string(frame.line) + ")";
    }
    return text;
}

std::string FormatTextReport(const std::wstring& dumpPath, const DumpReader& reader,
                             const std::vector<DumpFrame>& stack) {
    const DumpException& exception = reader.Exception();
    std::ostringstream out;
    out << "Dump:            " << ToUtf8(dumpPath) << "\n";
    out << "Exception:       " << ExceptionLine(exception.code) << "\n";
    out << "  address:       " << LocationOfAddress(reader, exception.address) << "\n";
    out << "  flags:         " << Hex(exception.flags, 8)
        << ((exception.flags & EXCEPTION_NONCONTINUABLE) ? " (noncontinuable)" : "") << "\n";
    out << "  parameters:    " << exception.parameters.size();
    for (uint64_t parameter : exception.parameters) {
        out << " " << Hex(parameter, 0);
    }
    out << "\n";
    if (HasAccessDetail(exception)) {
        out << "  access:        " << AccessKind(exception.parameters[0]) << " at "
            << Hex(exception.parameters[1], 16) << "\n";
    }
    out << "Crashing thread: " << exception.threadId << "\n";
    out << "Threads (" << reader.Threads().size() << "):";
    for (const DumpThread& thread : reader.Threads()) {
        out << " " << thread.id << (thread.id == exception.threadId ? "*" : "");
    }
    out << "\n";
    size_t listed = 0;
    for (const DumpModule& module : reader.Modules()) {
        listed += module.listedInDump ? 1 : 0;
    }
    out << "Modules (" << listed << " in the dump):\n";
    for (const DumpModule& module : reader.Modules()) {
        out << "  " << Hex(module.base, 16) << "  " << Hex(module.size, 8) << "  "
            << ToUtf8(module.path) << (module.listedInDump ? "" : "  (added, not in the dump)")
            << "\n";
    }
    out << "Stack of thread " << exception.threadId << ":\n";
    if (!reader.HasExceptionContext()) {
        out << "  (the dump holds no context for the crash)\n";
    }
    for (size_t index = 0; index < stack.size(); ++index) {
        out << "  #" << index << (index < 10 ? "  " : " ") << Hex(stack[index].address, 16) << "  "
            << DescribeLocation(stack[index]) << "\n";
    }
    return out.str();
}

std::string FormatJsonReport(const std::wstring& dumpPath, const DumpReader& reader,
                             const std::vector<DumpFrame>& stack) {
    using nlohmann::json;
    const DumpException& exception = reader.Exception();
    // 64-bit addresses go out as hexadecimal strings: JSON readers keep numbers as doubles.
    json parameters = json::array();
    for (uint64_t parameter : exception.parameters) {
        parameters.push_back(Hex(parameter, 0));
    }
    const DumpModule* crashModule = reader.ModuleAt(exception.address);
    json report;
    report["file"] = ToUtf8(dumpPath);
    report["exception"] = {
        {"code", exception.code},
        {"code_hex", Hex(exception.code, 8)},
        {"name", ExceptionName(exception.code)},
        {"address", Hex(exception.address, 16)},
        {"module", crashModule ? json(ToUtf8(FileNameOf(crashModule->path))) : json()},
        {"offset", crashModule ? json(Hex(exception.address - crashModule->base, 0)) : json()},
        {"flags", exception.flags},
        {"parameters", parameters},
    };
    report["crashing_thread"] = exception.threadId;
    json threads = json::array();
    for (const DumpThread& thread : reader.Threads()) {
        threads.push_back({{"id", thread.id},
                           {"stack_start", Hex(thread.stackStart, 16)},
                           {"stack_size", thread.stackSize}});
    }
    report["threads"] = threads;
    json modules = json::array();
    for (const DumpModule& module : reader.Modules()) {
        modules.push_back({{"path", ToUtf8(module.path)},
                           {"name", ToUtf8(FileNameOf(module.path))},
                           {"base", Hex(module.base, 16)},
                           {"size", module.size},
                           {"in_dump", module.listedInDump}});
    }
    report["modules"] = modules;
    json frames = json::array();
    for (const DumpFrame& frame : stack) {
        frames.push_back(
            {{"address", Hex(frame.address, 16)},
             {"module", frame.module.empty() ? json() : json(ToUtf8(frame.module))},
             {"offset", frame.module.empty() ? json() : json(Hex(frame.moduleOffset, 0))},
             {"function", frame.function.empty() ? json() : json(frame.function)},
             {"displacement", frame.function.empty() ? json() : json(frame.displacement)},
             {"file", frame.file.empty() ? json() : json(ToUtf8(frame.file))},
             {"line", frame.file.empty() ? json() : json(frame.line)}});
    }
    report["stack"] = frames;
    return report.dump(2) + "\n";
}

}  // namespace DumpTool
