#include "tests/support/fake_unknown.h"

#include <objbase.h>

#include <gtest/gtest-spi.h>

namespace Rig {
namespace {

class FakeSpy : public FakeUnknown<IUnknown> {
  public:
    FakeSpy() : FakeUnknown("spy") {}
};

TEST(FakeUnknown, CountsWhatTheCodeTakesAndGivesBack) {
    FakeSpy spy;
    IUnknown* one = nullptr;
    spy.HandOut(&one);
    void* other = nullptr;
    EXPECT_EQ(one->QueryInterface(IID_IUnknown, &other), S_OK);
    EXPECT_EQ(spy.References(), 2);
    EXPECT_EQ(one->QueryInterface(IID_IStream, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(one->Release(), 1U);
    EXPECT_EQ(one->Release(), 0U);
}

TEST(FakeUnknown, ReferenceThatIsLeftFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(
        {
            FakeSpy spy;
            IUnknown* left = nullptr;
            spy.HandOut(&left);
        },
        "spy was not released");
}

TEST(FakeUnknown, UseWithoutAReferenceFailsTheTest) {
    static FakeSpy* spy = nullptr;
    FakeSpy here;
    spy = &here;
    EXPECT_NONFATAL_FAILURE(spy->AddRef(), "holds no reference");
    spy->Release();
    EXPECT_NONFATAL_FAILURE(spy->Release(), "holds no reference");
    IUnknown* none = nullptr;
    here.HandOut(&none);
}

}  // namespace
}  // namespace Rig
