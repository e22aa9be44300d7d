#pragma once

#include "TinyFramework/Common/TinyLogging_win32.h"

#include <mutex>
#include <string>
#include <vector>

namespace TestSupport {

// Collects every log record that reaches the handler while it is alive, and starts each test
// with an empty flood guard so that earlier records cannot suppress this test's ones.
class LogCapture {
public:
    explicit LogCapture(int handlerResult = 1);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> Records() const;
    // The records whose message (the text after the header) contains `text`.
    std::vector<std::string> RecordsContaining(const std::string& text) const;
    // The message of each record: the text after the header's "] : ", without the line feed.
    std::vector<std::string> Messages() const;
    // Whether some record's message is exactly `message`.
    bool Contains(const std::string& message) const;
    void Clear();

private:
    static int Handler(int severity, const char* file, int line, const char* text);

    TinyFramework::LogMessageHandler m_previous;
    int m_previousGuard;
};

}  // namespace TestSupport
