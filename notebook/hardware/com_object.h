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

namespace Notebook {

/// The run of the service that goes on now. What was given out to an earlier one, which may have been
/// killed, is in no ledger.
inline std::uint32_t CurrentRun() {
    return SharedState::Get().Raw().service.runs;
}

/// A method that the service does not call.
#define NOTEBOOK_NOT_NEEDED(...)                     \
    HRESULT STDMETHODCALLTYPE __VA_ARGS__ override { \
        return E_NOTIMPL;                            \
    }                                                \
    static_assert(true)

template <class... Ids>
bool IsOneOf(REFIID iid, const Ids&... ids) {
    return (IsEqualIID(iid, ids) || ...);
}

/// Reference counting and QueryInterface for a stand-in object; every reference that is given out
/// is counted in the ledger. Starts with one reference, for whoever made it. (Where the service is
/// another process, those who hold the references are the stubs that stand for it.)
template <class... Interfaces>
class ComObject : public Interfaces... {
  public:
    ComObject() { CountReferences(+1); }
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
        *object = Find(iid);
        if (*object == nullptr) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }

  protected:
    virtual ~ComObject() = default;

    /// The interface of that identifier, without a reference; null when the object has none.
    virtual void* Find(REFIID iid) = 0;

  private:
    void CountReferences(LONG change) {
        if (m_run == CurrentRun()) {
            InterlockedAdd(&SharedState::Get().Raw().ledger.comReferences, change);
        }
    }

    const std::uint32_t m_run = CurrentRun();
    LONG m_references = 1;
};

/// The automation half of a dual interface, which nobody here uses.
template <class Interface>
class Automation : public Interface {
  public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override {
        return E_NOTIMPL;
    }
};

/// Calls a function when the multithreaded apartment of this process ends: registered there as a
/// class object, which COM then lets go of.
class ApartmentEnd final : public IUnknown {
  public:
    static void Watch(REFIID name, void (*ended)()) {
        auto* const watch = new ApartmentEnd(ended);
        DWORD cookie = 0;
        CoRegisterClassObject(name, watch, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);
        watch->Release();
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        *object = IsEqualIID(iid, IID_IUnknown) ? this : nullptr;
        if (*object == nullptr) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        return static_cast<ULONG>(InterlockedIncrement(&m_references));
    }
    ULONG STDMETHODCALLTYPE Release() override {
        const LONG left = InterlockedDecrement(&m_references);
        if (left == 0) {
            m_ended();
            delete this;
        }
        return static_cast<ULONG>(left);
    }

  private:
    explicit ApartmentEnd(void (*ended)()) : m_ended(ended) {}
    virtual ~ApartmentEnd() = default;

    void (*m_ended)();
    LONG m_references = 1;
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

    /// Calls every sink that subscribed before the event of that number. One whose process has ended
    /// is let go of.
    template <class Function>
    void Tell(std::uint64_t number, Function function) {
        for (const auto& [cookie, entry] : Since(number)) {
            if (IsGone(function(*entry->sink))) {
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

/// A connection point for one event interface.
template <class Sink>
class ConnectionPoint final : public ComObject<IConnectionPoint> {
  public:
    ConnectionPoint(IConnectionPointContainer* container, REFIID iid) : m_container(container), m_iid(iid) {
        m_container->AddRef();
    }

    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override {
        *iid = m_iid;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** container) override {
        m_container->AddRef();
        *container = m_container;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* unknown, DWORD* cookie) override {
        CallScope call(Call::Advise);
        call.Detail("%s", EventsName(m_iid));
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        if (unknown == nullptr || cookie == nullptr) {
            return call.Result(E_POINTER);
        }
        Sink* sink = nullptr;
        const HRESULT found = unknown->QueryInterface(m_iid, reinterpret_cast<void**>(&sink));
        if (FAILED(found)) {
            return call.Result(CONNECT_E_CANNOTCONNECT);
        }
        *cookie = SinkTable<Sink>::Get().Add(sink, m_iid);
        return call.Result(S_OK);
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
        CallScope call(Call::Unadvise);
        call.Detail("%s", EventsName(m_iid));
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        return call.Result(SinkTable<Sink>::Get().Remove(cookie) ? S_OK : CONNECT_E_NOCONNECTION);
    }
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections**) override { return E_NOTIMPL; }

  protected:
    void* Find(REFIID iid) override {
        return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IConnectionPoint)
                   ? static_cast<IConnectionPoint*>(this)
                   : nullptr;
    }

  private:
    ~ConnectionPoint() override { m_container->Release(); }

    IConnectionPointContainer* m_container;
    IID m_iid;
};

/// The class object of a stand-in; `Make` gives the object with one reference.
template <class Make>
class ClassObject final : public ComObject<IClassFactory> {
  public:
    ClassObject(Call call, Make make) : m_call(call), m_make(std::move(make)) {}

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        CallScope call(m_call);
        if (object == nullptr) {
            return call.Result(E_POINTER);
        }
        *object = nullptr;
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        if (outer != nullptr) {
            return call.Result(CLASS_E_NOAGGREGATION);
        }
        IUnknown* const made = m_make();
        const HRESULT result = made->QueryInterface(iid, object);
        made->Release();
        return call.Result(result);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

  protected:
    void* Find(REFIID iid) override {
        return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IClassFactory)
                   ? static_cast<IClassFactory*>(this)
                   : nullptr;
    }

  private:
    ~ClassObject() override = default;

    Call m_call;
    Make m_make;
};

template <class Make>
HRESULT GetClassObject(Call call, Make make, REFIID iid, void** object) {
    auto* const factory = new ClassObject<Make>(call, std::move(make));
    const HRESULT result = factory->QueryInterface(iid, object);
    factory->Release();
    return result;
}

}  // namespace Notebook
