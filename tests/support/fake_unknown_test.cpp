#include "tests/support/fake_unknown.h"

#include <windows.h>
#include <objbase.h>
#include <ocidl.h>

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

#include <memory>
#include <optional>

#include "tests/support/com_support.h"

namespace Rig {
namespace {

/// An interface that only the tests know.
struct IColour : public IUnknown {
    virtual HRESULT WINAPI get_Colour(long* colour) = 0;
};
constexpr IID kColourId{0x6f8bf8c1, 0x5f1f, 0x4c63, {0x9a, 0x0b, 0x71, 0x7a, 0x52, 0x10, 0x7d, 0x01}};
constexpr long kRed = 3;

}  // namespace

template <>
struct InterfaceId<IColour> {
    static REFIID Value() { return kColourId; }
};

namespace {

class FakeCar : public FakeUnknown<IColour, IErrorInfo> {
  public:
    FakeCar() : FakeUnknown("car") {}
    HRESULT WINAPI get_Colour(long* colour) override {
        ExpectHeld("get_Colour");
        *colour = kRed;
        return S_OK;
    }
    HRESULT WINAPI GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetSource(BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetDescription(BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetHelpContext(DWORD*) override { return E_NOTIMPL; }
};

/// References to every fake that exists.
long AllReferences() {
    long references = 0;
    for (const FakeObject::Held& held : FakeObject::All()) {
        references += held.references;
    }
    return references;
}

TEST(FakeUnknown, CountsWhatTheCodeTakesAndGivesBack) {
    FakeCar car;
    IColour* colour = nullptr;
    ASSERT_EQ(car.HandOut(&colour), S_OK);
    EXPECT_EQ(colour->AddRef(), 2U);
    EXPECT_EQ(car.References(), 2);
    EXPECT_EQ(colour->Release(), 1U);
    EXPECT_EQ(colour->Release(), 0U);
    EXPECT_EQ(car.References(), 0);
    EXPECT_EQ(car.ReferencesTaken(), 2);
}

TEST(FakeUnknown, AnswersForItsInterfacesAndOneIdentity) {
    FakeCar car;
    IColour* colour = nullptr;
    ASSERT_EQ(car.HandOut(&colour), S_OK);
    IErrorInfo* info = nullptr;
    EXPECT_EQ(colour->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info)), S_OK);
    IUnknown* one = nullptr;
    IUnknown* other = nullptr;
    EXPECT_EQ(colour->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&one)), S_OK);
    EXPECT_EQ(info->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&other)), S_OK);
    EXPECT_EQ(one, other);
    void* none = &car;
    EXPECT_EQ(info->QueryInterface(IID_IStream, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    for (int i = 0; i < 4; ++i) {
        one->Release();
    }
}

TEST(FakeUnknown, ReferenceThatIsLeftFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(
        {
            FakeCar car;
            IColour* colour = nullptr;
            car.HandOut(&colour);
            EXPECT_EQ(AllReferences(), 1);
        },
        "Fake car ends with 1 reference(s)");
    EXPECT_EQ(AllReferences(), 0);
}

TEST(FakeUnknown, ReleaseWithoutReferenceFailsTheTest) {
    static FakeCar* car = nullptr;
    FakeCar here;
    car = &here;
    EXPECT_NONFATAL_FAILURE(car->Release(), "Fake car: Release is called by code that holds no");
}

TEST(FakeUnknown, UseAfterTheLastReleaseFailsTheTest) {
    static IColour* colour = nullptr;
    FakeCar car;
    ASSERT_EQ(car.HandOut(&colour), S_OK);
    colour->Release();
    static long value = 0;
    EXPECT_NONFATAL_FAILURE(colour->get_Colour(&value), "get_Colour is called by code");
    EXPECT_NONFATAL_FAILURE(
        {
            colour->AddRef();
            colour->Release();
        },
        "AddRef is called by code");
}

TEST(FakeUnknown, KeptFakesOutliveTheTest) {
    FakeCar& car = KeepFake<FakeCar>();
    IColour* colour = nullptr;
    ASSERT_EQ(car.HandOut(&colour), S_OK);
    EXPECT_EQ(colour->Release(), 0U);
}

TEST(ComApartment, EntersAndLeaves) {
    APTTYPE type = APTTYPE_CURRENT;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    {
        const ComApartment com;
        EXPECT_EQ(CoGetApartmentType(&type, &qualifier), S_OK);
        EXPECT_EQ(type, APTTYPE_MTA);
    }
    EXPECT_EQ(CoGetApartmentType(&type, &qualifier), CO_E_NOTINITIALIZED);
}

TEST(ComApartment, MismatchFailsTheTest) {
    const ComApartment com;
    EXPECT_NONFATAL_FAILURE(const ComApartment other(COINIT_APARTMENTTHREADED), "cannot enter this COM");
}

}  // namespace
}  // namespace Rig
