#pragma once

#include <windows.h>
#include <oaidl.h>
#include <ocidl.h>
#include <olectl.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/deliveries.h"
#include "notebook/hardware/guarded_memory.h"
#include "notebook/state/shared_state.h"
#include "platform/mbn_api.h"

namespace Notebook {

/// The run of the service that goes on now. What was given out to an earlier one, which may have been
/// killed, is in no ledger.
inline std::uint32_t CurrentRun() {
    return SharedState::Get().Raw().service.runs;
}

/// The run of an object that is in no ledger, whoever holds it.
inline constexpr std::uint32_t kNoRun = UINT32_MAX;

/// A method that the service does not call.
#define NOTEBOOK_NOT_NEEDED(...)                     \
    HRESULT STDMETHODCALLTYPE __VA_ARGS__ override { \
        return E_NOTIMPL;                            \
    }                                                \
    static_assert(true)

/// An interface of a stand-in object and the identifiers, besides IUnknown's, that ask for it.
template <class Type, const IID&... kIds>
struct As {
    using Interface = Type;
    static bool IsAskedFor(REFIID iid) {
        return IsEqualIID(iid, IID_IUnknown) || (IsEqualIID(iid, kIds) || ...);
    }
};

/// Reference counting and QueryInterface for a stand-in object with interfaces `As<...>`; every reference
/// that is given out is counted in the ledger of the run that it was made in. Starts with one reference, for
/// whoever made it. (Where the service is another process, those who hold the references are the stubs that
/// stand for it.)
template <class... Each>
class ComObject : public Each::Interface... {
  public:
    explicit ComObject(std::uint32_t run = CurrentRun()) : m_run(run) { CountReferences(+1); }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    // A call to an object that is gone ends the process.
    static void* operator new(std::size_t bytes) {
        void* const memory = AllocateGuarded(bytes, alignof(std::max_align_t));
        return memory != nullptr ? memory : throw std::bad_alloc();
    }
    static void operator delete(void* memory) noexcept { FreeGuarded(memory); }

    ULONG STDMETHODCALLTYPE AddRef() override {
        CountReferences(+1);
        return static_cast<ULONG>(InterlockedIncrement(&m_references));
    }

    ULONG STDMETHODCALLTYPE Release() override {
        CountReferences(-1);
        const LONG left = InterlockedDecrement(&m_references);
        if (left == 0) {
            delete this;
        }
        return static_cast<ULONG>(left);
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        ((*object == nullptr && Each::IsAskedFor(iid)
              ? static_cast<void>(*object = static_cast<typename Each::Interface*>(this))
              : void()),
         ...);
        if (*object == nullptr) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }

  protected:
    virtual ~ComObject() = default;

  private:
    void CountReferences(LONG change) {
        if (m_run == CurrentRun()) {
            InterlockedAdd(&SharedState::Get().Raw().ledger.comReferences, change);
        }
    }

    const std::uint32_t m_run;
    LONG m_references = 1;
};

/// What a modem's interface and its radio can do besides, which nobody here asks for.
template <class Object>
class ModemOperations : public Object {
  public:
    using Object::Object;

    NOTEBOOK_NOT_NEEDED(get_HardwareRadioState(MBN_RADIO*));
    NOTEBOOK_NOT_NEEDED(GetInterfaceCapability(MBN_INTERFACE_CAPS*));
    NOTEBOOK_NOT_NEEDED(GetSubscriberInformation(IMbnSubscriberInformation**));
    NOTEBOOK_NOT_NEEDED(GetReadyState(int*));
    NOTEBOOK_NOT_NEEDED(InEmergencyMode(VARIANT_BOOL*));
    NOTEBOOK_NOT_NEEDED(GetHomeProvider(MBN_PROVIDER*));
    NOTEBOOK_NOT_NEEDED(GetPreferredProviders(SAFEARRAY**));
    NOTEBOOK_NOT_NEEDED(SetPreferredProviders(SAFEARRAY*, ULONG*));
    NOTEBOOK_NOT_NEEDED(GetVisibleProviders(ULONG*, SAFEARRAY**));
    NOTEBOOK_NOT_NEEDED(ScanNetwork(ULONG*));
    NOTEBOOK_NOT_NEEDED(GetConnection(IMbnConnection**));
};

/// The automation half of a dual interface, which nobody here uses.
template <class Interface>
class Automation : public Interface {
  public:
    NOTEBOOK_NOT_NEEDED(GetTypeInfoCount(UINT*));
    NOTEBOOK_NOT_NEEDED(GetTypeInfo(UINT, LCID, ITypeInfo**));
    NOTEBOOK_NOT_NEEDED(GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*));
    NOTEBOOK_NOT_NEEDED(Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*));
};

/// Calls a function when the multithreaded apartment of this process ends: registered there as a
/// class object, which COM then lets go of.
class ApartmentEnd final : public ComObject<As<IUnknown>> {
  public:
    static void Watch(REFIID name, void (*ended)()) {
        auto* const watch = new ApartmentEnd(ended);
        DWORD cookie = 0;
        CoRegisterClassObject(name, watch, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);
        watch->Release();
    }

  private:
    explicit ApartmentEnd(void (*ended)()) : ComObject(kNoRun), m_ended(ended) {}
    ~ApartmentEnd() override { m_ended(); }

    void (*m_ended)();
};

/// What a call answers when the process of the called object has ended or takes no more calls.
inline bool IsGone(HRESULT result) {
    return result == RPC_E_DISCONNECTED || result == RPC_E_SERVER_DIED || result == RPC_E_SERVER_DIED_DNE ||
           result == CO_E_OBJNOTCONNECTED || result == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE) ||
           result == HRESULT_FROM_WIN32(RPC_S_CALL_FAILED);
}

/// The name of an event interface that the notebook tells, as traces have it.
const char* EventsName(REFIID events);

/// The next subscription's number. No two have the same, of whatever kind.
inline DWORD NextCookie() {
    static LONG last = 0;
    return static_cast<DWORD>(InterlockedIncrement(&last));
}

/// Who subscribed in this process to one kind of event interface. A sink is released when it is
/// unadvised and the calls to it that run have ended, once: sinks need not count safely. When the
/// multithreaded apartment ends all are released, as COM does with those of other processes.
template <class Sink>
class SinkTable {
  public:
    static SinkTable& Get() {
        static SinkTable& table = *new SinkTable();
        return table;
    }

    DWORD Add(Sink* sink, REFIID iid) {
        const std::uint64_t since = EventPump::Get().Start();
        if (InterlockedExchange(&m_watching, 1) == 0) {
            ApartmentEnd::Watch(iid, [] { Get().Clear(); });
        }
        auto entry = std::make_shared<Entry>(sink, since);
        const DWORD cookie = NextCookie();
        const ExclusiveLock lock(m_lock);
        m_entries[cookie] = std::move(entry);
        return cookie;
    }

    bool Remove(DWORD cookie) {
        std::shared_ptr<Entry> entry;
        const ExclusiveLock lock(m_lock);
        const auto found = m_entries.find(cookie);
        if (found == m_entries.end()) {
            return false;
        }
        entry = std::move(found->second);
        m_entries.erase(found);
        return true;
    }

    /// Calls the method of every sink that subscribed before the event of that number. One whose process
    /// has ended is let go of.
    template <class... Parameters, class... Arguments>
    void Tell(std::uint64_t number, HRESULT (STDMETHODCALLTYPE Sink::*method)(Parameters...),
              Arguments... arguments) {
        for (const auto& [cookie, entry] : Since(number)) {
            if (IsGone((entry->sink->*method)(arguments...))) {
                Remove(cookie);
            }
        }
    }

  private:
    struct Entry {
        Entry(Sink* advised, std::uint64_t first) : sink(advised), since(first), run(CurrentRun()) {
            InterlockedIncrement(&SharedState::Get().Raw().ledger.comSinks);
        }
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;
        ~Entry() {
            sink->Release();
            if (run == CurrentRun()) {
                InterlockedDecrement(&SharedState::Get().Raw().ledger.comSinks);
            }
        }
        Sink* sink;
        std::uint64_t since;
        std::uint32_t run;
    };
    using Entries = std::map<DWORD, std::shared_ptr<Entry>>;

    Entries Since(std::uint64_t number) {
        const ExclusiveLock lock(m_lock);
        Entries chosen;
        for (const auto& [cookie, entry] : m_entries) {
            if (number >= entry->since) {
                chosen.emplace(cookie, entry);
            }
        }
        return chosen;
    }

    void Clear() {
        Entries entries;
        const ExclusiveLock lock(m_lock);
        entries.swap(m_entries);
        InterlockedExchange(&m_watching, 0);
    }

    SRWLOCK m_lock = SRWLOCK_INIT;
    LONG m_watching = 0;  ///< the apartment's end
    Entries m_entries;
};

/// Has the sinks of an event interface told: `Tell(number, &INetworkEvents::NetworkAdded, id)`.
template <class Sink, class... Parameters, class... Arguments>
void Tell(std::uint64_t number, HRESULT (STDMETHODCALLTYPE Sink::*method)(Parameters...),
          Arguments... arguments) {
    SinkTable<Sink>::Get().Tell(number, method, arguments...);
}

/// A connection point for one event interface.
template <class Sink>
class ConnectionPoint final : public ComObject<As<IConnectionPoint, IID_IConnectionPoint>> {
  public:
    ConnectionPoint(IConnectionPointContainer* container, REFIID iid) : m_container(container), m_iid(iid) {
        m_container->AddRef();
    }

    HRESULT STDMETHODCALLTYPE Advise(IUnknown* unknown, DWORD* cookie) override {
        CallScope call(Call::Advise);
        call.Detail("%s", EventsName(m_iid));
        return call.Answer([&]() -> HRESULT {
            Sink* sink = nullptr;
            if (unknown == nullptr || cookie == nullptr) {
                return E_POINTER;
            }
            if (FAILED(unknown->QueryInterface(m_iid, reinterpret_cast<void**>(&sink)))) {
                return CONNECT_E_CANNOTCONNECT;
            }
            *cookie = SinkTable<Sink>::Get().Add(sink, m_iid);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
        CallScope call(Call::Unadvise);
        call.Detail("%s", EventsName(m_iid));
        return call.Answer(
            [&] { return SinkTable<Sink>::Get().Remove(cookie) ? S_OK : CONNECT_E_NOCONNECTION; });
    }
    NOTEBOOK_NOT_NEEDED(GetConnectionInterface(IID*));
    NOTEBOOK_NOT_NEEDED(GetConnectionPointContainer(IConnectionPointContainer**));
    NOTEBOOK_NOT_NEEDED(EnumConnections(IEnumConnections**));

  private:
    ~ConnectionPoint() override { m_container->Release(); }

    IConnectionPointContainer* m_container;
    IID m_iid;
};

/// An event interface that a stand-in tells, and its identifier.
template <class Interface, const IID& kInterfaceId>
struct Tells {
    using Sink = Interface;
    static constexpr const IID& kId = kInterfaceId;
};

/// A stand-in object that tells `Tells<...>` to those who subscribe.
template <class Object, class... Events>
class EventSource : public Object {
  public:
    NOTEBOOK_NOT_NEEDED(EnumConnectionPoints(IEnumConnectionPoints**));
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        CallScope call(Call::FindConnectionPoint);
        call.Detail("%s", EventsName(iid));
        *point = nullptr;
        return call.Answer([&] {
            ((IsEqualIID(iid, Events::kId)
                  ? static_cast<void>(*point = new ConnectionPoint<typename Events::Sink>(this, iid))
                  : void()),
             ...);
            return *point == nullptr ? CONNECT_E_NOCONNECTION : S_OK;
        });
    }
};

/// Gives a new stand-in, or the one there is, with one reference.
using Maker = IUnknown* (*)();

/// The class object of a stand-in.
class ClassObject final : public ComObject<As<IClassFactory, IID_IClassFactory>> {
  public:
    ClassObject(Call call, Maker make) : m_call(call), m_make(make) {}

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        CallScope call(m_call);
        if (object == nullptr) {
            return call.Result(E_POINTER);
        }
        *object = nullptr;
        return call.Answer([&]() -> HRESULT {
            if (outer != nullptr) {
                return CLASS_E_NOAGGREGATION;
            }
            IUnknown* const made = m_make();
            const HRESULT result = made->QueryInterface(iid, object);
            made->Release();
            return result;
        });
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

  private:
    Call m_call;
    Maker m_make;
};

}  // namespace Notebook
