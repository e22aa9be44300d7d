#include "tests/support/LogCapture.h"

#include <algorithm>

namespace TestSupport {

namespace {

std::mutex g_lock;
std::vector<std::string> g_records;
int g_handlerResult = 1;

}  // namespace

LogCapture::LogCapture(int handlerResult)
    : m_previous(TinyFramework::GetLogMessageHandler()),
      m_previousGuard(TinyFramework::GetLogFloodGuard()) {
    Clear();
    g_handlerResult = handlerResult;
    TinyFramework::GetLogFloodGuardInstance().Reset();
    TinyFramework::SetLogMessageHandler(&LogCapture::Handler);
}

LogCapture::~LogCapture() {
    TinyFramework::SetLogMessageHandler(m_previous);
    TinyFramework::SetLogFloodGuard(m_previousGuard);
    TinyFramework::GetLogFloodGuardInstance().Reset();
}

int LogCapture::Handler(int /*severity*/, const char* /*file*/, int /*line*/, const char* text) {
    std::lock_guard<std::mutex> hold(g_lock);
    g_records.push_back(text);
    return g_handlerResult;
}

std::vector<std::string> LogCapture::Records() const {
    std::lock_guard<std::mutex> hold(g_lock);
    return g_records;
}

std::vector<std::string> LogCapture::RecordsContaining(const std::string& text) const {
    std::vector<std::string> matching;
    for (const std::string& record : Records()) {
        if (record.find(text) != std::string::npos) {
            matching.push_back(record);
        }
    }
    return matching;
}

std::vector<std::string> LogCapture::Messages() const {
    std::vector<std::string> messages;
    for (const std::string& record : Records()) {
        const size_t start = record.find("] : ");
        std::string message = start == std::string::npos ? record : record.substr(start + 4);
        if (!message.empty() && message.back() == '\n') {
            message.pop_back();
        }
        messages.push_back(message);
    }
    return messages;
}

bool LogCapture::Contains(const std::string& message) const {
    const std::vector<std::string> messages = Messages();
    return std::find(messages.begin(), messages.end(), message) != messages.end();
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> hold(g_lock);
    g_records.clear();
}

}  // namespace TestSupport
