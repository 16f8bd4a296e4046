#include "registry/registry.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/ledger.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"

namespace {

using Rig::Ledger;
using Rig::RegistryBytes;
using Rig::RegistryNumber;
using Rig::RegistryText;
using Rig::RegistryValue;
using Rig::ScopedImport;
using Rig::ScopedRegistryTree;
using Rig::ScopedResult;
using testing::ElementsAre;

constexpr std::size_t kLongestText = 1023;  // characters, without the end

class RegistryTest : public testing::Test {
  protected:
    /// What is read of a value after it was stored like this.
    std::wstring ReadBack(const RegistryValue& stored) {
        tree.Write(L"Key", L"Value", stored);
        return registry.GetValue(tree.Path(L"Key"), L"Value");
    }

    ScopedRegistryTree tree{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Linkvane Registry Test"};
    Ledger ledger;
    Registry registry{HKEY_LOCAL_MACHINE};
};

TEST_F(RegistryTest, TextIsRead) {
    EXPECT_EQ(ReadBack(RegistryText(L"True")), L"True");
}

TEST_F(RegistryTest, ExpandableTextIsReadUnexpanded) {
    RegistryValue value = RegistryText(L"%SystemRoot%\\x");
    value.type = REG_EXPAND_SZ;
    EXPECT_EQ(ReadBack(value), L"%SystemRoot%\\x");
}

TEST_F(RegistryTest, TextIsReadUpToItsFirstNull) {
    EXPECT_EQ(ReadBack(RegistryBytes(REG_SZ, {'O', 0, 'n', 0, 0, 0, 'x', 0, 0, 0})), L"On");
}

TEST_F(RegistryTest, LongestTextIsReadWhole) {
    EXPECT_EQ(ReadBack(RegistryText(std::wstring(kLongestText, L'x'))), std::wstring(kLongestText, L'x'));
}

TEST_F(RegistryTest, TextOneCharacterTooLongReadsAsNoText) {
    EXPECT_EQ(ReadBack(RegistryText(std::wstring(kLongestText + 1, L'x'))), L"");
}

TEST_F(RegistryTest, NumberReadsAsNoText) {
    EXPECT_EQ(ReadBack(RegistryNumber(0x00410041)), L"");
}

TEST_F(RegistryTest, BinaryThatLooksLikeTextReadsAsNoText) {
    EXPECT_EQ(ReadBack(RegistryBytes(REG_BINARY, {'O', 0, 'n', 0, 0, 0})), L"");
}

TEST_F(RegistryTest, ListOfTextsReadsAsNoText) {
    EXPECT_EQ(ReadBack(RegistryBytes(REG_MULTI_SZ, {'O', 0, 'n', 0, 0, 0, 0, 0})), L"");
}

TEST_F(RegistryTest, TextWithoutItsEndReadsAsNoText) {
    EXPECT_EQ(ReadBack(RegistryBytes(REG_SZ, {'T', 0, 'r', 0, 'u', 0, 'e', 0})), L"");
}

TEST_F(RegistryTest, TextThatFillsTheBufferWithoutItsEndReadsAsNoText) {
    RegistryValue value = RegistryText(std::wstring(kLongestText + 1, L'x'));
    value.bytes.resize(value.bytes.size() - sizeof(wchar_t));
    EXPECT_EQ(ReadBack(value), L"");
}

TEST_F(RegistryTest, TextOfAnOddNumberOfBytesReadsAsNoText) {
    EXPECT_EQ(ReadBack(RegistryBytes(REG_SZ, {'O', 0, 'n', 0, 0})), L"");
}

TEST_F(RegistryTest, SingleByteReadsAsNoText) {
    EXPECT_EQ(ReadBack(RegistryBytes(REG_SZ, {0})), L"");
}

TEST_F(RegistryTest, TextOfNoBytesReadsAsNoText) {
    EXPECT_EQ(ReadBack(RegistryBytes(REG_SZ, {})), L"");
}

TEST_F(RegistryTest, MissingValueReadsAsNoText) {
    tree.Create(L"Key");
    EXPECT_EQ(registry.GetValue(tree.Path(L"Key"), L"Value"), L"");
}

TEST_F(RegistryTest, MissingKeyReadsAsNoText) {
    EXPECT_EQ(registry.GetValue(tree.Path(L"Key"), L"Value"), L"");
    EXPECT_FALSE(tree.Exists(L"Key"));
}

TEST_F(RegistryTest, NothingOfAFailedQueryIsRead) {
    tree.Write(L"Key", L"Value", RegistryText(L"True"));
    const ScopedImport<&::RegQueryValueExW> fake{[&](auto... arguments) -> LSTATUS {
        fake.Original(arguments...);
        return ERROR_ACCESS_DENIED;
    }};
    EXPECT_EQ(registry.GetValue(tree.Path(L"Key"), L"Value"), L"");
}

TEST_F(RegistryTest, ReadingAsksForReadAccessAndForAThousandCharacters) {
    tree.Create(L"Key");
    REGSAM access = 0;
    DWORD room = 0;
    const ScopedImport<&::RegOpenKeyExW> open{
        [&](HKEY root, LPCWSTR path, DWORD options, REGSAM asked, PHKEY key) -> LSTATUS {
            access = asked;
            return open.Original(root, path, options, asked, key);
        }};
    const ScopedImport<&::RegQueryValueExW> query{
        [&](HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD bytes) -> LSTATUS {
            room = *bytes;
            return ERROR_FILE_NOT_FOUND;
        }};
    static_cast<void>(registry.GetValue(tree.Path(L"Key"), L"Value"));
    EXPECT_EQ(access, REGSAM{KEY_READ});
    EXPECT_EQ(room, 2048U);
}

TEST_F(RegistryTest, KeyIsClosedWhenAnExceptionPasses) {
    tree.Create(L"Key");
    const ScopedImport<&::RegQueryValueExW> query{[](auto...) -> LSTATUS { throw DWORD{ERROR_OUTOFMEMORY}; }};
    EXPECT_THROW(static_cast<void>(registry.GetValue(tree.Path(L"Key"), L"Value")), DWORD);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryTest, TrueIsStoredInTenBytes) {
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", L"True"), ERROR_SUCCESS);
    EXPECT_EQ(tree.Read(L"Key", L"Value"), RegistryBytes(REG_SZ, {'T', 0, 'r', 0, 'u', 0, 'e', 0, 0, 0}));
}

TEST_F(RegistryTest, FalseIsStoredInTwelveBytes) {
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", L"False"), ERROR_SUCCESS);
    EXPECT_EQ(tree.Read(L"Key", L"Value"),
              RegistryBytes(REG_SZ, {'F', 0, 'a', 0, 'l', 0, 's', 0, 'e', 0, 0, 0}));
}

TEST_F(RegistryTest, EmptyTextIsStoredWithItsEnd) {
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", L""), ERROR_SUCCESS);
    EXPECT_EQ(tree.Read(L"Key", L"Value"), RegistryBytes(REG_SZ, {0, 0}));
}

TEST_F(RegistryTest, WritingMakesEveryMissingKey) {
    EXPECT_EQ(registry.SetValue(tree.Path(L"One\\Two\\Three"), L"Value", L"x"), ERROR_SUCCESS);
    EXPECT_EQ(tree.Read(L"One\\Two\\Three", L"Value"), RegistryText(L"x"));
}

TEST_F(RegistryTest, WritingReplacesAValueOfAnotherType) {
    tree.Write(L"Key", L"Value", RegistryNumber(1));
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", L"True"), ERROR_SUCCESS);
    EXPECT_EQ(tree.Read(L"Key", L"Value"), RegistryText(L"True"));
}

TEST_F(RegistryTest, AbsentTextIsInvalidAndLeavesTheValueAlone) {
    tree.Write(L"Key", L"Value", RegistryText(L"True"));
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", nullptr), ERROR_INVALID_DATA);
    EXPECT_EQ(tree.Read(L"Key", L"Value"), RegistryText(L"True"));
}

TEST_F(RegistryTest, AbsentTextIsInvalidButItsKeyIsMade) {
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", nullptr), ERROR_INVALID_DATA);
    EXPECT_TRUE(tree.Exists(L"Key"));
    EXPECT_EQ(tree.Read(L"Key", L"Value"), std::nullopt);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryTest, KeyIsClosedWhenAnExceptionPassesTheWriting) {
    const ScopedImport<&::RegSetValueExW> write{[](auto...) -> LSTATUS { throw DWORD{ERROR_OUTOFMEMORY}; }};
    EXPECT_THROW(static_cast<void>(registry.SetValue(tree.Path(L"Key"), L"Value", L"True")), DWORD);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryTest, ErrorOfMakingTheKeyIsTheResultAndNothingIsWritten) {
    const ScopedResult<&::RegCreateKeyExW> create{ERROR_ACCESS_DENIED};
    const ScopedResult<&::RegSetValueExW> write{ERROR_SUCCESS};
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", L"True"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(write.Calls(), 0);
}

TEST_F(RegistryTest, ErrorOfWritingIsTheResult) {
    const ScopedResult<&::RegSetValueExW> write{ERROR_NO_SYSTEM_RESOURCES};
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", L"True"), ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryTest, WritingMakesAnOrdinaryKeyWithReadAndWriteAccess) {
    const ScopedImport<&::RegCreateKeyExW> create{
        [](HKEY root, LPCWSTR, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access,
           const LPSECURITY_ATTRIBUTES security, PHKEY, LPDWORD disposition) -> LSTATUS {
            EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
            EXPECT_EQ(reserved, 0U);
            EXPECT_EQ(keyClass, nullptr);
            EXPECT_EQ(options, DWORD{REG_OPTION_NON_VOLATILE});
            EXPECT_EQ(access, REGSAM{0x2001F});
            EXPECT_EQ(security, nullptr);
            EXPECT_NE(disposition, nullptr);
            return ERROR_CRC;
        }};
    EXPECT_EQ(registry.SetValue(tree.Path(L"Key"), L"Value", L"True"), ERROR_CRC);
}

}  // namespace
