#include "platform/mbn_api.h"

#include <gmock/gmock.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string>

// The declarations are a contract with Windows' own component: these tests hold the identifiers and
// the places of the operations in the virtual tables, counted behind IUnknown's three.

namespace {

std::wstring TextOf(const GUID& id) {
    std::array<wchar_t, 64> text{};
    StringFromGUID2(id, text.data(), static_cast<int>(text.size()));
    return text.data();
}

TEST(MbnApiTest, IdentifiersAreMicrosofts) {
    EXPECT_EQ(TextOf(CLSID_MbnInterfaceManager), L"{BDFEE05B-4418-11DD-90ED-001C257CCFF1}");
    EXPECT_EQ(TextOf(IID_IMbnInterfaceManager), L"{DCBBBAB6-201B-4BBB-AAEE-338E368AF6FA}");
    EXPECT_EQ(TextOf(IID_IMbnInterface), L"{DCBBBAB6-2001-4BBB-AAEE-338E368AF6FA}");
    EXPECT_EQ(TextOf(IID_IMbnRadio), L"{DCCCCAB6-201F-4BBB-AAEE-338E368AF6FA}");
    EXPECT_EQ(TextOf(IID_IMbnRadioEvents), L"{DCDDDAB6-201F-4BBB-AAEE-338E368AF6FA}");
}

// A pointer to a virtual function tells its slot by the rules of every compiler here but Microsoft's; the
// declarations are the same for all.
#if !defined(_MSC_VER)
/// Which slot of the virtual table a pointer to a virtual function means.
template <class Function>
std::size_t SlotOf(Function function) {
    // The Itanium rules: one more than the offset in the table.
    std::ptrdiff_t offset = 0;
    static_assert(sizeof(function) >= sizeof(offset));
    std::memcpy(&offset, &function, sizeof(offset));
    return static_cast<std::size_t>(offset - 1) / sizeof(void*);
}

TEST(MbnApiTest, OperationsStandInMicrosoftsOrder) {
    EXPECT_EQ(SlotOf(&IMbnInterfaceManager::GetInterface), 3U);
    EXPECT_EQ(SlotOf(&IMbnInterfaceManager::GetInterfaces), 4U);
    EXPECT_EQ(SlotOf(&IMbnInterface::get_InterfaceID), 3U);
    EXPECT_EQ(SlotOf(&IMbnInterface::GetConnection), 13U);
    EXPECT_EQ(SlotOf(&IMbnRadio::get_SoftwareRadioState), 3U);
    EXPECT_EQ(SlotOf(&IMbnRadio::get_HardwareRadioState), 4U);
    EXPECT_EQ(SlotOf(&IMbnRadio::SetSoftwareRadioState), 5U);
    EXPECT_EQ(SlotOf(&IMbnRadioEvents::OnRadioStateChange), 3U);
    EXPECT_EQ(SlotOf(&IMbnRadioEvents::OnSetSoftwareRadioStateComplete), 4U);
}
#endif

}  // namespace
