#include "registry/registry.h"

#include <optional>
#include <string>

#include "tests/registry/registry_fixture.h"

namespace RegistryTests {
namespace {

constexpr std::size_t kLongestText = 1023;  // characters, without the end

class RegistryTest : public RegistryFixture {
  protected:
    [[nodiscard]] std::wstring Get() const { return registry.GetValue(tree.Path(L"Key"), L"Value"); }
    [[nodiscard]] LSTATUS Set(const wchar_t* text) const {
        return registry.SetValue(tree.Path(L"Key"), L"Value", text);
    }
    void Store(const RegistryValue& value) const { tree.Write(L"Key", L"Value", value); }
    [[nodiscard]] std::optional<RegistryValue> Stored() const { return tree.Read(L"Key", L"Value"); }

    Registry registry{HKEY_LOCAL_MACHINE};
};

/// A stored value, and what is read of it.
struct Reading {
    const char* name;
    RegistryValue value;
    std::wstring text;
};

RegistryValue Expandable(std::wstring_view text) {
    RegistryValue value = RegistryText(text);
    value.type = REG_EXPAND_SZ;
    return value;
}

RegistryValue WithoutItsEnd(std::wstring_view text) {
    RegistryValue value = RegistryText(text);
    value.bytes.resize(value.bytes.size() - sizeof(wchar_t));
    return value;
}

const std::wstring kLong(kLongestText, L'x');

const Reading kReadings[] = {
    {"text", RegistryText(L"True"), L"True"},
    {"expandable text, which is not expanded", Expandable(L"%SystemRoot%\\x"), L"%SystemRoot%\\x"},
    {"text up to its first null", RegistryBytes(REG_SZ, {'O', 0, 'n', 0, 0, 0, 'x', 0, 0, 0}), L"On"},
    {"longest text", RegistryText(kLong), kLong},
    {"text that is a character too long", RegistryText(kLong + L"x"), L""},
    {"number", RegistryNumber(0x00410041), L""},
    {"binary that looks like text", RegistryBytes(REG_BINARY, {'O', 0, 'n', 0, 0, 0}), L""},
    {"list of texts", RegistryBytes(REG_MULTI_SZ, {'O', 0, 'n', 0, 0, 0, 0, 0}), L""},
    {"text without its end", WithoutItsEnd(L"True"), L""},
    {"text that fills the buffer without its end", WithoutItsEnd(kLong + L"x"), L""},
    {"text of an odd number of bytes", RegistryBytes(REG_SZ, {'O', 0, 'n', 0, 0}), L""},
    {"single byte", RegistryBytes(REG_SZ, {0}), L""},
    {"text of no bytes", RegistryBytes(REG_SZ, {}), L""},
};

TEST_F(RegistryTest, OnlyAWholeTextIsRead) {
    for (const Reading& reading : kReadings) {
        SCOPED_TRACE(reading.name);
        Store(reading.value);
        EXPECT_EQ(Get(), reading.text);
    }
}

TEST_F(RegistryTest, WhatIsMissingReadsAsNoText) {
    EXPECT_EQ(Get(), L"");
    EXPECT_FALSE(tree.Exists(L"Key"));
    tree.Create(L"Key");
    EXPECT_EQ(Get(), L"");
}

TEST_F(RegistryTest, NothingOfAFailedQueryIsRead) {
    Store(RegistryText(L"True"));
    const ScopedImport<&::RegQueryValueExW> fake{[&](auto... arguments) -> LSTATUS {
        fake.Original(arguments...);
        return ERROR_ACCESS_DENIED;
    }};
    EXPECT_EQ(Get(), L"");
}

TEST_F(RegistryTest, ReadingAsksForReadAccessAndForAThousandCharacters) {
    tree.Create(L"Key");
    const ScopedWatch<&::RegOpenKeyExW> opens;
    const ScopedImport<&::RegQueryValueExW> query{
        [](HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD bytes) -> LSTATUS {
            EXPECT_EQ(*bytes, 2048U);
            return ERROR_FILE_NOT_FOUND;
        }};
    EXPECT_EQ(Get(), L"");
    EXPECT_THAT(opens.Arguments(), ElementsAre(FieldsAre(_, _, DWORD{0}, REGSAM{KEY_READ}, _)));
    EXPECT_EQ(query.Calls(), 1);
}

TEST_F(RegistryTest, KeyIsClosedWhenAnExceptionPasses) {
    tree.Create(L"Key");
    const auto noMemory = [](auto...) -> LSTATUS { throw DWORD{ERROR_OUTOFMEMORY}; };
    const ScopedImport<&::RegQueryValueExW> query{noMemory};
    const ScopedImport<&::RegSetValueExW> write{noMemory};
    EXPECT_THROW(static_cast<void>(Get()), DWORD);
    EXPECT_THROW(static_cast<void>(Set(L"True")), DWORD);
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryTest, TextIsStoredWithItsEnd) {
    EXPECT_EQ(Set(L"True"), ERROR_SUCCESS);
    EXPECT_EQ(Stored(), RegistryBytes(REG_SZ, {'T', 0, 'r', 0, 'u', 0, 'e', 0, 0, 0}));
    EXPECT_EQ(Set(L"False"), ERROR_SUCCESS);
    EXPECT_EQ(Stored(), RegistryBytes(REG_SZ, {'F', 0, 'a', 0, 'l', 0, 's', 0, 'e', 0, 0, 0}));
    EXPECT_EQ(Set(L""), ERROR_SUCCESS);
    EXPECT_EQ(Stored(), RegistryBytes(REG_SZ, {0, 0}));
}

TEST_F(RegistryTest, WritingMakesEveryMissingKeyAndReplacesAValueOfAnotherType) {
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(registry.SetValue(tree.Path(L"One\\Two\\Three"), L"Value", L"x"), ERROR_SUCCESS);
        EXPECT_EQ(tree.Read(L"One\\Two\\Three", L"Value"), RegistryText(L"x"));
        tree.Write(L"One\\Two\\Three", L"Value", RegistryNumber(1));
    }
}

TEST_F(RegistryTest, AbsentTextIsInvalidAndLeavesTheValueAloneButItsKeyIsMade) {
    EXPECT_EQ(Set(nullptr), ERROR_INVALID_DATA);
    EXPECT_TRUE(tree.Exists(L"Key"));
    EXPECT_EQ(Stored(), std::nullopt);
    Store(RegistryText(L"True"));
    EXPECT_EQ(Set(nullptr), ERROR_INVALID_DATA);
    EXPECT_EQ(Stored(), RegistryText(L"True"));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryTest, ErrorOfMakingTheKeyIsTheResultAndNothingIsWritten) {
    const ScopedResult<&::RegCreateKeyExW> create{ERROR_ACCESS_DENIED};
    const ScopedResult<&::RegSetValueExW> write{ERROR_SUCCESS};
    EXPECT_EQ(Set(L"True"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(write.Calls(), 0);
}

TEST_F(RegistryTest, ErrorOfWritingIsTheResult) {
    const ScopedResult<&::RegSetValueExW> fails{ERROR_NO_SYSTEM_RESOURCES};
    const ScopedWatch<&::RegSetValueExW> writes;
    EXPECT_EQ(Set(L"True"), ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_THAT(writes.Arguments(), ElementsAre(FieldsAre(_, _, 0U, DWORD{REG_SZ}, _, 10U)));
    EXPECT_TRUE(ledger.Balanced());
}

TEST_F(RegistryTest, WritingMakesAnOrdinaryKeyWithReadAndWriteAccess) {
    const ScopedResult<&::RegCreateKeyExW> fails{ERROR_CRC};
    const ScopedWatch<&::RegCreateKeyExW> creations;
    EXPECT_EQ(Set(L"True"), ERROR_CRC);
    EXPECT_THAT(creations.Arguments(),
                ElementsAre(FieldsAre(HKEY_LOCAL_MACHINE, _, 0U, nullptr, DWORD{REG_OPTION_NON_VOLATILE},
                                      kReadAndWrite, nullptr, _, NotNull())));
}

}  // namespace
}  // namespace RegistryTests
