#include <windows.h>

#include <algorithm>
#include <string>

#include "logging/log_scope.h"
#include "logging/policy.h"
#include "service/service_utilities.h"
#include "tests/hostile/guarded_room.h"
#include "tests/hostile/kind.h"
#include "tests/support/scoped_import.h"

namespace HostileBytes {
namespace {

using Rig::ScopedImport;

/// What the query for one name finds in a resource: a place in it and a length.
struct Find {
    bool isFound = false;
    bool isNull = false;
    std::size_t offset = 0;
    UINT length = 0;  ///< bytes, or characters of a text
};

class VersionResources final : public Kind {
  public:
    void Try(Random& random) override {
        constexpr std::size_t kHeader = 40;
        VS_FIXEDFILEINFO fixed{};
        fixed.dwSignature = VS_FFI_SIGNATURE;
        fixed.dwFileVersionMS = random.Number();
        fixed.dwFileVersionLS = random.Number();
        const Bytes record = BytesOf(fixed);
        const Bytes name = BytesOfText(Damaged(random, L"Orva Brimlet Support"));
        m_resource = Bytes(kHeader);
        m_resource.insert(m_resource.end(), record.begin(), record.end());
        m_resource.insert(m_resource.end(), name.begin(), name.end());
        const std::size_t whole = m_resource.size();
        m_resource = Damaged(random, std::move(m_resource));
        m_resource.resize(std::min(m_resource.size(), GuardedRoom::kBytes));
        m_isRead = !random.OneIn(16);
        m_fixed = Draw(random, kHeader, sizeof(fixed), 4, 1);
        for (Find& text : m_texts) {
            text = Draw(random, kHeader + sizeof(fixed), (whole - kHeader - sizeof(fixed)) / 2, 2,
                        sizeof(wchar_t));
        }
        const GuardedNew guarded;
        TryVersion();
        TryProductName();
    }

  private:
    Find Draw(Random& random, std::size_t offset, std::size_t length, std::uint32_t alignment,
              std::size_t unit) {
        Find find{!random.OneIn(8), random.OneIn(16), offset, static_cast<UINT>(length)};
        if (random.OneIn(4)) {
            find.offset = random.Below(m_resource.size() + 1) / alignment * alignment;
        }
        if (random.OneIn(3)) {
            find.length = random.Of({UINT{0}, UINT{1}, 15U, 51U, random.Number() % 0x10000});
        }
        // Whatever a damaged resource claims, the system finds nothing behind its end.
        find.isFound = find.isFound && find.offset <= m_resource.size();
        const std::size_t left = find.isFound ? m_resource.size() - find.offset : 0;
        find.length = static_cast<UINT>(std::min<std::size_t>(find.length, left / unit));
        return find;
    }

    [[nodiscard]] bool HoldsAll(const Find& find, std::size_t bytes) const {
        return find.isFound && !find.isNull && find.offset + bytes <= m_resource.size();
    }

    void TryVersion() {
        const LogScope log("HostileBytes::TryVersion");
        std::wstring expected = L"0.0.0.0";
        VS_FIXEDFILEINFO info{};
        if (!m_resource.empty() && m_isRead && m_fixed.length >= sizeof(info) &&
            HoldsAll(m_fixed, sizeof(info))) {
            Copy(&info, m_resource.data() + m_fixed.offset, sizeof(info));
            if (info.dwSignature == 0xFEEF04BD) {
                expected.clear();
                for (const DWORD part : {info.dwFileVersionMS >> 16U, info.dwFileVersionMS & 0xFFFFU,
                                         info.dwFileVersionLS >> 16U, info.dwFileVersionLS & 0xFFFFU}) {
                    expected += (expected.empty() ? L"" : L".") + std::to_wstring(part);
                }
            }
        }
        Require(Utils::GetFileVersion(log, L"some.exe") == expected, "a version was misread");
        Require(m_blocks == 0, "a resource was not given back");
    }

    void TryProductName() const {
        std::wstring expected;
        for (const Find& text : m_texts) {
            const std::size_t bytes = text.length * sizeof(wchar_t);
            if (!m_resource.empty() && m_isRead && text.length != 0 && HoldsAll(text, bytes)) {
                expected.resize(text.length);
                Copy(expected.data(), m_resource.data() + text.offset, bytes);
                expected = expected.c_str();
                break;
            }
        }
        Require(Orva::Shared::GetProductName(L"some.exe") == expected, "a product's name was misread");
    }

    BOOL Query(const void* resource, const std::wstring& name, void** found, UINT* length) const {
        const Find& find =
            name == L"\\" ? m_fixed : m_texts[name.find(L"040904E4") != std::wstring::npos ? 0 : 1];
        if (find.isFound) {
            *found = find.isNull
                         ? nullptr
                         : const_cast<std::byte*>(static_cast<const std::byte*>(resource)) + find.offset;
            *length = find.length;
        }
        return find.isFound ? TRUE : FALSE;
    }

    Bytes m_resource;
    bool m_isRead = true;
    Find m_fixed;
    Find m_texts[2];
    GuardedRoom m_room;
    int m_blocks = 0;
    ScopedImport<&::GetFileVersionInfoSizeW> m_size{
        [this](LPCWSTR, LPDWORD) { return static_cast<DWORD>(m_resource.size()); }};
    ScopedImport<&::GetFileVersionInfoW> m_read{[this](LPCWSTR, DWORD, DWORD bytes, void* block) -> BOOL {
        if (m_isRead) {
            Copy(block, m_resource.data(), bytes);
        }
        return m_isRead ? TRUE : FALSE;
    }};
    ScopedImport<&::VerQueryValueW> m_query{
        [this](LPCVOID resource, LPCWSTR name, void** found, UINT* length) {
            return Query(resource, name, found, length);
        }};
    ScopedImport<&::LocalAlloc> m_allocate{[this](UINT, SIZE_T bytes) -> HLOCAL {
        ++m_blocks;
        return m_room.Place(Bytes(bytes));
    }};
    ScopedImport<&::LocalFree> m_free{[this](HLOCAL) -> HLOCAL {
        --m_blocks;
        m_room.GiveBack();
        return nullptr;
    }};
};

}  // namespace

std::unique_ptr<Kind> MakeVersionResources() {
    return std::make_unique<VersionResources>();
}

}  // namespace HostileBytes
