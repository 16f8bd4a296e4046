#pragma once

#include <windows.h>
#include <unknwn.h>
#include <oaidl.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/scoped_import.h"

namespace Rig {

/// The identifier of a COM interface. Specialise it where the compiler does not know one:
///
///     template <> struct Rig::InterfaceId<IMine> { static REFIID Value() { return IID_IMine; } };
template <class Interface>
struct InterfaceId {
    static REFIID Value() { return __uuidof(Interface); }
};

/// What a fake COM object is besides its interfaces: a name for messages and a count of the
/// references that the code under test holds. The test owns the object; no release deletes it.
/// It fails the test when a reference is taken or given back while the code holds none, and when
/// references are left at its end. Any thread may call.
class FakeObject {
  public:
    FakeObject(const FakeObject&) = delete;
    FakeObject& operator=(const FakeObject&) = delete;

    /// How many references the code under test holds now.
    [[nodiscard]] long References() const;
    /// How many it has been given in all, or has taken.
    [[nodiscard]] long ReferencesTaken() const;
    [[nodiscard]] const std::string& Name() const { return m_name; }

    /// Gives the code a first reference or a further one: for everything that hands the object
    /// out (a class factory, a getter of another fake). E_NOINTERFACE and null for an interface
    /// that it has not.
    HRESULT HandOut(REFIID interfaceId, void** object);
    /// `network.HandOut(out)`, for an `INetwork** out`.
    template <class Interface>
    HRESULT HandOut(Interface** object) {
        return HandOut(InterfaceId<Interface>::Value(), reinterpret_cast<void**>(object));
    }

    /// Fails the test when the code holds no reference; to be called by the fake's methods.
    void ExpectHeld(const char* method) const;

    /// The fakes that exist now, with the references that the code under test holds to them.
    struct Held {
        const FakeObject* fake;
        std::string name;
        long references;
    };
    [[nodiscard]] static std::vector<Held> All();

  protected:
    explicit FakeObject(std::string name);
    virtual ~FakeObject();

    [[nodiscard]] virtual void* Find(REFIID interfaceId) = 0;
    ULONG TakeReference();
    ULONG GiveReferenceBack();
    HRESULT Query(REFIID interfaceId, void** object);

  private:
    HRESULT Give(REFIID interfaceId, void** object);

    const std::string m_name;
    long m_references = 0;
    long m_taken = 0;
};

/// Base of a fake COM object with the interfaces named. Counts references (see `FakeObject`) and
/// answers `QueryInterface` for its interfaces, `IUnknown`, and `IDispatch` where one of them
/// derives from it:
///
///     class FakeRadio : public FakeUnknown<IMbnRadio> {
///       public:
///         FakeRadio() : FakeUnknown("radio") {}
///         HRESULT WINAPI get_SoftwareRadioState(MBN_RADIO* state) override { ... }
///     };
///     FakeRadio radio;                 // lives in the test
///     radio.HandOut(out);              // the code under test has a reference now
///     EXPECT_EQ(radio.References(), 0) // is looked at by the destructor, too
///
/// Declare fakes before what uses them, so that they go last. `Ledger::Balanced` looks at them.
template <class First, class... Others>
class FakeUnknown : public First, public Others..., public FakeObject {
  public:
    // By the interfaces' own signatures.
    HRESULT WINAPI QueryInterface(REFIID interfaceId, void** object) override {
        return Query(interfaceId, object);
    }
    ULONG WINAPI AddRef() override { return TakeReference(); }
    ULONG WINAPI Release() override { return GiveReferenceBack(); }

  protected:
    explicit FakeUnknown(std::string name) : FakeObject(std::move(name)) {}
    ~FakeUnknown() override = default;

    [[nodiscard]] void* Find(REFIID interfaceId) override {
        if (interfaceId == __uuidof(IUnknown)) {
            return static_cast<IUnknown*>(static_cast<First*>(this));
        }
        void* found = FindIn<First>(interfaceId);
        static_cast<void>(((found != nullptr || (found = FindIn<Others>(interfaceId)) != nullptr) || ...));
        return found;
    }

  private:
    template <class Interface>
    [[nodiscard]] void* FindIn(REFIID interfaceId) {
        if (interfaceId == InterfaceId<Interface>::Value()) {
            return static_cast<Interface*>(this);
        }
        if constexpr (std::is_base_of_v<IDispatch, Interface>) {
            if (interfaceId == __uuidof(IDispatch)) {
                return static_cast<IDispatch*>(static_cast<Interface*>(this));
            }
        }
        return nullptr;
    }
};

/// A fake that lives to the end of the process, for objects that threads of the service may still
/// call after the test: `FakeRadio& radio = KeepFake<FakeRadio>();`
template <class Fake, class... Arguments>
[[nodiscard]] Fake& KeepFake(Arguments&&... arguments) {
    static Detail::RigLock& lock = *new Detail::RigLock();
    static auto& kept = *new std::vector<std::unique_ptr<Fake>>();
    auto fake = std::make_unique<Fake>(std::forward<Arguments>(arguments)...);
    const Detail::RigLockHolder hold(lock);
    return *kept.emplace_back(std::move(fake));
}

}  // namespace Rig
