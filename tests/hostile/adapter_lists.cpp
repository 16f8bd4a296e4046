#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "network/cable_check.h"
#include "network/connection_adapter.h"
#include "network/nlm_event_handler.h"
#include "tests/hostile/guarded_room.h"
#include "tests/hostile/kind.h"
#include "tests/support/scoped_import.h"

namespace HostileBytes {
namespace {

using Rig::ScopedImport;

constexpr wchar_t kAdapterId[] = L"{6B29FC40-CA47-1067-B31D-00DD010662DA}";

/// Where a record's link leads: to the record of that number, or elsewhere.
constexpr int kEnd = -1;
constexpr int kOutOfTheBlock = -2;
constexpr int kIntoARecord = -3;

struct Record {
    DWORD type = 0;
    std::string name;  ///< as many bytes as the field takes; none: null, where it is a pointer
    std::string address;
    std::string description;
    int next = kEnd;
};

std::string NarrowDamaged(Random& random, const char* text) {
    Bytes bytes(std::strlen(text));
    Copy(bytes.data(), text, bytes.size());
    bytes = Damaged(random, std::move(bytes));
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// A field is filled as far as the text goes; one that is too long has no end.
template <std::size_t Size>
void Fill(char (&field)[Size], const std::string& text) {
    Copy(field, text.data(), std::min(Size, text.size()));
    if (text.size() < Size) {
        field[text.size()] = '\0';
    }
}

/// The answers of one of the two functions.
struct MachineAnswers {
    std::vector<Record> records;
    ULONG missing = 0;            ///< bytes of the last record that the block lacks
    std::uint32_t overflows = 0;  ///< so many calls ask for another size before it is enough
    ULONG oddSize = 0;            ///< what they ask for; zero: what is needed
    ULONG error = ERROR_SUCCESS;
    bool linksAreKnown = true;  ///< none leads into a record

    std::uint32_t calls = 0;
    ULONG lastAnswer = ERROR_SUCCESS;
};

template <class Entry>
MachineAnswers Draw(Random& random) {
    MachineAnswers answers;
    answers.records.resize(random.Below(7));
    const int count = static_cast<int>(answers.records.size());
    for (int i = 0; i < count; ++i) {
        Record& record = answers.records[static_cast<std::size_t>(i)];
        record.type =
            random.OneIn(2) ? 6 : random.Of<DWORD>({1, 9, 23, 24, 71, 131, 237, 243, 244, random.Number()});
        record.name = NarrowDamaged(random, "{6B29FC40-CA47-1067-B31D-00DD010662DA}");
        record.address = NarrowDamaged(random, random.Of({"0.0.0.0", "192.168.100.100", "", "10.0.0.1"}));
        record.description = NarrowDamaged(
            random, random.Of({"Some Ethernet", "Some VPN", "A Virtual Switch", "virtual %s%n"}));
        record.next = i + 1 < count ? i + 1 : kEnd;
        if (random.OneIn(10)) {
            record.next = random.Of({kEnd, i, static_cast<int>(random.Below(answers.records.size())),
                                     kOutOfTheBlock, kIntoARecord});
            if (record.next == kIntoARecord) {
                // What is found there has no pointers in one of the lists only.
                const bool isPlain = std::is_same_v<Entry, IP_ADAPTER_INFO>;
                record.next = isPlain ? kIntoARecord : kEnd;
                answers.linksAreKnown = answers.linksAreKnown && !isPlain;
            }
        }
    }
    if (count != 0 && random.OneIn(6)) {
        answers.missing = 1 + random.Below(sizeof(Entry));
    }
    if (random.OneIn(4)) {
        answers.overflows = random.Below(6);
        answers.oddSize = random.OneIn(3) ? random.Number() : 0;
    }
    if (random.OneIn(8)) {
        answers.error =
            random.Of<ULONG>({ERROR_NO_DATA, ERROR_BUFFER_OVERFLOW, ERROR_NOT_SUPPORTED, random.Number()});
    }
    return answers;
}

/// Answers a call: `*bytes` is the room that the caller has made for the list.
template <class Entry, class List, class Describe>
ULONG Answer(MachineAnswers& answers, List* list, ULONG* bytes, Describe describe) {
    const ULONG needed = static_cast<ULONG>(answers.records.size() * sizeof(Entry)) - answers.missing;
    answers.lastAnswer = answers.error;
    if (answers.calls++ < answers.overflows || *bytes < needed) {
        *bytes = answers.oddSize != 0 ? answers.oddSize : needed;
        answers.lastAnswer = ERROR_BUFFER_OVERFLOW;
    } else if (answers.error == ERROR_SUCCESS) {
        std::vector<Entry> entries(answers.records.size());
        auto* const first = reinterpret_cast<std::byte*>(list);
        for (std::size_t i = 0; i < entries.size(); ++i) {
            // What nobody fills would change a judgement, and has no end.
            std::fill_n(reinterpret_cast<char*>(&entries[i]), sizeof(Entry), 'V');
            const int next = answers.records[i].next;
            std::byte* const link = next == kEnd             ? nullptr
                                    : next == kOutOfTheBlock ? first + GuardedRoom::kBytes
                                    : next == kIntoARecord
                                        ? first + 64
                                        : first + static_cast<std::size_t>(next) * sizeof(Entry);
            describe(answers.records[i], entries[i], link, first + i * sizeof(Entry));
        }
        // Of a record that is cut nothing: with more room than that, an empty one is found in it.
        Copy(first, entries.data(), needed / sizeof(Entry) * sizeof(Entry));
        *bytes = needed;
    }
    return answers.lastAnswer;
}

/// The records that can be come to, in their order: a broken link ends the list.
template <class Entry>
std::vector<const Record*> Reachable(const MachineAnswers& answers) {
    std::vector<const Record*> found;
    const auto whole =
        static_cast<int>((answers.records.size() * sizeof(Entry) - answers.missing) / sizeof(Entry));
    for (int i = answers.records.empty() ? kEnd : 0; i >= 0 && i < whole;) {
        const Record& record = answers.records[static_cast<std::size_t>(i)];
        if (std::ranges::count(found, &record) != 0) {
            break;
        }
        found.push_back(&record);
        i = record.next;
    }
    return found;
}

/// A record with the texts that it points to.
struct AddressEntry {
    IP_ADAPTER_ADDRESSES record;
    char name[64];
    wchar_t description[256];
};

class AdapterLists final : public Kind {
  public:
    void Try(Random& random) override {
        m_failingAllocation = random.OneIn(16) ? random.Below(4) : GuardedRoom::kBytes;
        if (random.OneIn(2)) {
            m_answers = Draw<IP_ADAPTER_INFO>(random);
            TryCableCheck();
        } else {
            m_answers = Draw<AddressEntry>(random);
            TryConnection();
        }
        m_allocations.clear();
    }

  private:
    void TryCableCheck() {
        bool awaitsAddress = false;
        const std::optional<bool> isIn = NLMUtils::IsCableIn(&awaitsAddress);
        const bool isRead = !HasRefused() && m_answers.calls == 2 && m_answers.lastAnswer == ERROR_SUCCESS;
        Require(isIn.has_value() == isRead, "a list was read, or not, against the answers");
        if (isRead && m_answers.linksAreKnown) {
            bool cable = false;
            bool waits = false;
            for (const Record* record : Reachable<IP_ADAPTER_INFO>(m_answers)) {
                const std::string address = record->address.substr(0, 16).c_str();
                const std::string description = record->description.substr(0, 132).c_str();
                const bool isEthernet = record->type == 6;
                waits = waits || (isEthernet && address == "0.0.0.0");
                cable = isEthernet && address != "0.0.0.0" && description.find("VPN") == std::string::npos &&
                        description.find("Virtual") == std::string::npos;
                if (cable) {
                    break;
                }
            }
            Require(*isIn == cable && awaitsAddress == waits, "a cable was misjudged");
        }
        { const NLMEventHandler releases{nullptr, nullptr}; }
        Require(m_blocks == 0, "a list was not given back");
    }

    void TryConnection() {
        unsigned char isEthernet = 0;
        NLMUtils::PrintAdapterInfo(kAdapterId, &isEthernet);
        const bool isRead = !m_allocations.empty() && m_allocations.front() && m_allocations.size() <= 3 &&
                            m_allocations.back() && m_answers.lastAnswer == ERROR_SUCCESS;
        if (!isRead || m_answers.linksAreKnown) {
            const std::vector<const Record*> records =
                isRead ? Reachable<AddressEntry>(m_answers) : std::vector<const Record*>();
            const std::wstring id = kAdapterId;
            const bool expected = std::ranges::any_of(records, [&id](const Record* record) {
                const std::string name = record->name.substr(0, 63).c_str();
                return record->type == 6 && std::wstring(name.begin(), name.end()) == id;
            });
            Require(isEthernet == (expected ? 1 : 0), "a connection was misjudged");
        }
        Require(m_blocks == 0, "a list was not given back");
    }

    [[nodiscard]] bool HasRefused() const { return std::ranges::count(m_allocations, false) != 0; }

    void* Allocate(SIZE_T bytes) {
        void* const block = m_allocations.size() == m_failingAllocation ? nullptr : m_room.Take(bytes);
        m_allocations.push_back(block != nullptr);
        m_bytes = bytes;
        m_blocks += block != nullptr ? 1 : 0;
        return block;
    }

    static void DescribeInfo(const Record& record, IP_ADAPTER_INFO& entry, std::byte* link) {
        entry.Next = reinterpret_cast<IP_ADAPTER_INFO*>(link);
        entry.Type = record.type;
        Fill(entry.AdapterName, record.name);
        Fill(entry.Description, record.description);
        Fill(entry.IpAddressList.IpAddress.String, record.address);
    }

    /// Of the texts, which are the system's pointers, each has its end; any may be null.
    static void DescribeAddresses(const Record& record, AddressEntry& entry, std::byte* link,
                                  std::byte* place) {
        entry.record.Next = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(link);
        entry.record.IfType = record.type;
        entry.record.AdapterName = nullptr;
        entry.record.Description = nullptr;
        entry.record.FriendlyName = nullptr;
        Fill(entry.name, record.name.substr(0, std::size(entry.name) - 1));
        const std::size_t length = std::min(record.description.size(), std::size(entry.description) - 1);
        std::transform(record.description.begin(),
                       record.description.begin() + static_cast<std::ptrdiff_t>(length), entry.description,
                       [](char letter) { return static_cast<wchar_t>(letter); });
        entry.description[length] = L'\0';
        if (!record.name.empty()) {
            entry.record.AdapterName = reinterpret_cast<char*>(place + offsetof(AddressEntry, name));
        }
        if (!record.description.empty()) {
            entry.record.Description =
                reinterpret_cast<wchar_t*>(place + offsetof(AddressEntry, description));
        }
    }

    MachineAnswers m_answers;
    GuardedRoom m_room;
    std::vector<bool> m_allocations;  ///< whether each was given
    std::size_t m_failingAllocation = 0;
    SIZE_T m_bytes = 0;  ///< of the block
    int m_blocks = 0;
    ScopedImport<&::HeapAlloc> m_allocate{[this](HANDLE, DWORD, SIZE_T bytes) { return Allocate(bytes); }};
    ScopedImport<&::HeapSize> m_size{[this](HANDLE, DWORD, const void*) { return m_bytes; }};
    ScopedImport<&::HeapFree> m_free{[this](HANDLE, DWORD, void*) {
        --m_blocks;
        m_room.GiveBack();
        return TRUE;
    }};
    ScopedImport<&::GetAdaptersInfo> m_info{[this](IP_ADAPTER_INFO* list, ULONG* bytes) -> DWORD {
        return Answer<IP_ADAPTER_INFO>(m_answers, list, bytes,
                                       [](const Record& record, IP_ADAPTER_INFO& entry, std::byte* link,
                                          std::byte*) { DescribeInfo(record, entry, link); });
    }};
    ScopedImport<&::GetAdaptersAddresses> m_addresses{
        [this](ULONG, ULONG, void*, IP_ADAPTER_ADDRESSES* list, ULONG* bytes) -> ULONG {
            return Answer<AddressEntry>(m_answers, list, bytes, &DescribeAddresses);
        }};
};

}  // namespace

std::unique_ptr<Kind> MakeAdapterLists() {
    return std::make_unique<AdapterLists>();
}

}  // namespace HostileBytes
