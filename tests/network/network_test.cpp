#include "tests/network/network_test.h"

#include <cstring>

#include "network/nlm_event_handler.h"

namespace NetworkTests {

NetworkTest::NetworkTest(const ::Notebook::Shape& shape) : m_notebook(m_clock, shape) {}

void NetworkTest::ReleaseAdapterList() {
    const NLMEventHandler handler{nullptr, nullptr};
}

ComPtr<INetworkListManager> NetworkTest::NetworkListManager() const {
    return m_notebook.Create<INetworkListManager>(CLSID_NetworkListManager, IID_INetworkListManager);
}

std::vector<LogLine> NetworkTest::Inside(const char* function) const {
    std::vector<LogLine> lines = m_log.Of(function);
    std::erase_if(lines, [](const LogLine& line) { return line.level < Level::kVerbose; });
    return lines;
}

std::vector<std::wstring> NetworkTest::Messages(const char* function) const {
    std::vector<std::wstring> messages;
    for (const LogLine& line : Inside(function)) {
        EXPECT_EQ(line.level, Level::kInformation) << testing::PrintToString(line.message);
        messages.push_back(line.message);
    }
    return messages;
}

void NetworkTest::ExpectError(const char* function, const std::wstring& line,
                              const std::wstring& exitLine) const {
    EXPECT_THAT(Inside(function), ElementsAre(Error(function, line)));
    EXPECT_EQ(m_log.Of(function).back(), TraceOut(function, exitLine));
}

std::vector<SIZE_T> NetworkTest::SizesOffered(Call call) const {
    std::vector<SIZE_T> sizes;
    for (const std::string& text : m_notebook.Calls(call)) {
        const std::size_t end = text.rfind(" bytes");
        sizes.push_back(std::stoul(text.substr(text.rfind(' ', end - 1) + 1)));
    }
    return sizes;
}

UncleanHeap::UncleanHeap()
    : m_allocate([this](HANDLE heap, DWORD flags, SIZE_T bytes) { return Allocate(heap, flags, bytes); }) {}

void UncleanHeap::Refuse(int nth, DWORD lastError) {
    m_refused[m_asked.size() + static_cast<std::size_t>(nth)] = lastError;
}

void* UncleanHeap::Allocate(HANDLE heap, DWORD flags, SIZE_T bytes) {
    EXPECT_EQ(heap, GetProcessHeap());
    EXPECT_EQ(flags, DWORD{0});
    m_asked.push_back(bytes);
    if (const auto refused = m_refused.find(m_asked.size()); refused != m_refused.end()) {
        SetLastError(refused->second);
        return nullptr;
    }
    void* const block = m_allocate.Original(heap, flags, bytes);
    if (block != nullptr) {
        std::memset(block, 0xA5, bytes);
    }
    return block;
}

}  // namespace NetworkTests
