#include "tests/network/fake_adapters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace NetworkTests {

using Rig::Detail::RigLockHolder;

namespace {

/// Fills a fixed field without a terminator when the text is as long as the field.
template <std::size_t Size>
void FillField(char (&field)[Size], const std::string& text) {
    std::memset(field, 0, Size);
    std::copy_n(text.begin(), std::min(Size, text.size()), field);
}

}  // namespace

FakeAdapterList::FakeAdapterList(std::vector<Adapter> adapters)
    : m_adapters(std::move(adapters)),
      m_fake([this](IP_ADAPTER_INFO* list, ULONG* bytes) { return Call(list, bytes); }) {}

void FakeAdapterList::Set(std::vector<Adapter> adapters) {
    const RigLockHolder hold(m_lock);
    m_adapters = std::move(adapters);
    m_failure.reset();
}

void FakeAdapterList::AnswerNext(Answer answer) {
    const RigLockHolder hold(m_lock);
    m_answers.push_back(std::move(answer));
}

void FakeAdapterList::FailNext(DWORD result, DWORD lastError) {
    AnswerNext([result, lastError](IP_ADAPTER_INFO*, ULONG*) {
        SetLastError(lastError);
        return result;
    });
}

void FakeAdapterList::FailAlways(DWORD result) {
    const RigLockHolder hold(m_lock);
    m_failure = result;
}

std::vector<ULONG> FakeAdapterList::SizesOffered() const {
    const RigLockHolder hold(m_lock);
    return m_sizesOffered;
}

DWORD FakeAdapterList::Call(IP_ADAPTER_INFO* list, ULONG* bytes) {
    Answer answer;
    {
        const RigLockHolder hold(m_lock);
        m_sizesOffered.push_back(*bytes);
        if (m_answers.empty()) {
            return List(list, bytes);
        }
        answer = std::move(m_answers.front());
        m_answers.pop_front();
    }
    return answer(list, bytes);
}

DWORD FakeAdapterList::List(IP_ADAPTER_INFO* list, ULONG* bytes) {
    if (m_failure.has_value()) {
        return *m_failure;
    }
    if (m_adapters.empty()) {
        return ERROR_NO_DATA;
    }
    const auto needed = static_cast<ULONG>(m_adapters.size() * sizeof(IP_ADAPTER_INFO));
    if (*bytes < needed) {
        *bytes = needed;
        return ERROR_BUFFER_OVERFLOW;
    }
    for (std::size_t i = 0; i < m_adapters.size(); ++i) {
        IP_ADAPTER_INFO& record = list[i];
        record = {};
        record.Next = i + 1 < m_adapters.size() ? &list[i + 1] : nullptr;
        record.Type = m_adapters[i].type;
        FillField(record.IpAddressList.IpAddress.String, m_adapters[i].address);
        FillField(record.Description, m_adapters[i].description);
        if (!m_adapters[i].secondAddress.empty()) {
            IP_ADDR_STRING& second = m_secondAddresses.emplace_back();
            FillField(second.IpAddress.String, m_adapters[i].secondAddress);
            record.IpAddressList.Next = &second;
        }
    }
    return ERROR_SUCCESS;
}

FakeAdapterAddresses::FakeAdapterAddresses(std::vector<AddressedAdapter> adapters)
    : m_adapters(std::move(adapters)),
      m_fake([this](ULONG family, ULONG flags, void* reserved, IP_ADAPTER_ADDRESSES* list, ULONG* bytes) {
          return Call(family, flags, reserved, list, bytes);
      }) {}

void FakeAdapterAddresses::Set(std::vector<AddressedAdapter> adapters) {
    m_adapters = std::move(adapters);
}

void FakeAdapterAddresses::AnswerNext(Answer answer) {
    m_answers.push_back(std::move(answer));
}

void FakeAdapterAddresses::FailNext(ULONG result) {
    AnswerNext([result](IP_ADAPTER_ADDRESSES*, ULONG*) { return result; });
}

void FakeAdapterAddresses::AskNextFor(ULONG bytes) {
    AnswerNext([bytes](IP_ADAPTER_ADDRESSES*, ULONG* size) {
        *size = bytes;
        return ULONG{ERROR_BUFFER_OVERFLOW};
    });
}

ULONG FakeAdapterAddresses::Call(ULONG family, ULONG flags, void* reserved, IP_ADAPTER_ADDRESSES* list,
                                 ULONG* bytes) {
    EXPECT_EQ(reserved, nullptr);
    m_family = family;
    m_flags = flags;
    m_sizesOffered.push_back(*bytes);
    if (!m_answers.empty()) {
        const Answer answer = std::move(m_answers.front());
        m_answers.pop_front();
        return answer(list, bytes);
    }
    if (m_adapters.empty()) {
        return ERROR_NO_DATA;
    }
    // Only the first record stands in the caller's memory: that is all that the list's head needs.
    m_records.assign(m_adapters.size(), IP_ADAPTER_ADDRESSES{});
    for (std::size_t i = 0; i < m_adapters.size(); ++i) {
        AddressedAdapter& adapter = m_adapters[i];
        m_records[i].Next = i + 1 < m_adapters.size() ? &m_records[i + 1] : nullptr;
        m_records[i].AdapterName = adapter.name.has_value() ? adapter.name->data() : nullptr;
        m_records[i].Description = adapter.description.has_value() ? adapter.description->data() : nullptr;
        m_records[i].FriendlyName = adapter.friendlyName.has_value() ? adapter.friendlyName->data() : nullptr;
        m_records[i].IfType = adapter.type;
    }
    *list = m_records.front();
    return ERROR_SUCCESS;
}

HeapWatch::HeapWatch()
    : m_allocate([this](HANDLE heap, DWORD flags, SIZE_T bytes) { return Allocate(heap, flags, bytes); }),
      m_free([this](HANDLE heap, DWORD flags, void* block) { return Free(heap, flags, block); }) {}

void HeapWatch::Refuse(int nth, DWORD lastError) {
    const RigLockHolder hold(m_lock);
    m_refused[static_cast<int>(m_asked.size()) + nth] = lastError;
}

void HeapWatch::RefuseEach(DWORD lastError) {
    const RigLockHolder hold(m_lock);
    m_refusesEach = lastError;
}

std::vector<SIZE_T> HeapWatch::Asked() const {
    const RigLockHolder hold(m_lock);
    return m_asked;
}

std::vector<SIZE_T> HeapWatch::Held() const {
    const RigLockHolder hold(m_lock);
    std::vector<SIZE_T> sizes;
    for (const auto& [block, bytes] : m_held) {
        sizes.push_back(bytes);
    }
    return sizes;
}

void* HeapWatch::Allocate(HANDLE heap, DWORD flags, SIZE_T bytes) {
    EXPECT_EQ(heap, GetProcessHeap());
    EXPECT_EQ(flags, DWORD{0});
    const RigLockHolder hold(m_lock);
    m_asked.push_back(bytes);
    const auto refused = m_refused.find(static_cast<int>(m_asked.size()));
    if (m_refusesEach.has_value() || refused != m_refused.end()) {
        SetLastError(m_refusesEach.has_value() ? *m_refusesEach : refused->second);
        return nullptr;
    }
    void* const block = m_allocate.Original(heap, flags, bytes);
    if (block != nullptr) {
        // What a heap hands out is never clean.
        std::memset(block, 0xA5, bytes);
        m_held[block] = bytes;
    }
    return block;
}

BOOL HeapWatch::Free(HANDLE heap, DWORD flags, void* block) {
    EXPECT_EQ(heap, GetProcessHeap());
    EXPECT_EQ(flags, DWORD{0});
    {
        const RigLockHolder hold(m_lock);
        m_held.erase(block);
    }
    return m_free.Original(heap, flags, block);
}

}  // namespace NetworkTests
