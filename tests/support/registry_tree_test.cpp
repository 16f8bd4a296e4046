#include "tests/support/registry_tree.h"

#include <windows.h>

#include <gmock/gmock.h>

#include "tests/support/scoped_import.h"

namespace Rig {
namespace {

using testing::Optional;

const wchar_t* const kTree = L"Software\\Orva Rig Test";

class RegistryTree : public testing::Test {
  protected:
    const ScopedRegistryTree m_tree{HKEY_CURRENT_USER, kTree};
};

TEST_F(RegistryTree, ReadsBackTypeAndBytesAsWrittenPastTheFakesOfTheTest) {
    EXPECT_FALSE(m_tree.Exists());
    EXPECT_EQ(m_tree.Read(L"", L"Missing"), std::nullopt);
    const ScopedResult<&::RegOpenKeyExW> denied{ERROR_ACCESS_DENIED};
    const RegistryValue odd = RegistryBytes(REG_SZ, {0x41, 0x00, 0x42});
    m_tree.Write(L"Sub\\Deep", L"Odd", odd);
    m_tree.Write(L"Sub\\Deep", L"Text", RegistryText(L"True"));
    m_tree.Write(L"Sub\\Deep", L"", RegistryNumber(7));
    m_tree.Write(L"Sub\\Deep", L"Nothing", RegistryBytes(REG_BINARY, {}));
    EXPECT_THAT(m_tree.Read(L"Sub\\Deep", L"Odd"), Optional(odd));
    EXPECT_THAT(m_tree.Read(L"Sub\\Deep", L"Text"),
                Optional(RegistryBytes(REG_SZ, {'T', 0, 'r', 0, 'u', 0, 'e', 0, 0, 0})));
    EXPECT_THAT(m_tree.Read(L"Sub\\Deep", L""), Optional(RegistryBytes(REG_DWORD, {7, 0, 0, 0})));
    EXPECT_THAT(m_tree.Read(L"Sub\\Deep", L"Nothing"), Optional(RegistryBytes(REG_BINARY, {})));
}

TEST_F(RegistryTree, DeletesValuesAndTrees) {
    m_tree.Write(L"A\\B", L"One", RegistryNumber(1));
    m_tree.DeleteValue(L"A\\B", L"One");
    m_tree.DeleteValue(L"A\\B", L"One");
    EXPECT_EQ(m_tree.Read(L"A\\B", L"One"), std::nullopt);
    m_tree.Delete(L"A");
    EXPECT_FALSE(m_tree.Exists(L"A"));
    EXPECT_TRUE(m_tree.Exists());
}

TEST_F(RegistryTree, EndPutsBackWhatWasThere) {
    m_tree.Write(L"A\\B", L"One", RegistryNumber(1));
    {
        const ScopedRegistryTree inner{HKEY_CURRENT_USER, kTree};
        EXPECT_FALSE(inner.Exists());
        inner.Write(L"C", L"Two", RegistryNumber(2));
        const ScopedRegistryTree innermost{HKEY_CURRENT_USER, kTree};
        EXPECT_FALSE(innermost.Exists());
    }
    EXPECT_FALSE(m_tree.Exists(L"C"));
    EXPECT_THAT(m_tree.Read(L"A\\B", L"One"), Optional(RegistryNumber(1)));
}

TEST_F(RegistryTree, ValuesPrintReadably) {
    EXPECT_EQ(testing::PrintToString(RegistryText(L"A")), "type 1, 4 bytes: 41 00 00 00  L\"A\\0\"");
}

}  // namespace
}  // namespace Rig
