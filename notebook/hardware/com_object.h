#pragma once

#include <windows.h>
#include <oaidl.h>
#include <ocidl.h>
#include <olectl.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/deliveries.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

/// Reference counting and QueryInterface for a stand-in object; every reference that is given out
/// is counted in the ledger. Starts with one reference, for whoever made it.
template <class... Interfaces>
class ComObject : public Interfaces... {
  public:
    ComObject() { CountReferences(+1); }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

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
    static void CountReferences(LONG change) {
        InterlockedAdd(&SharedState::Get().Raw().ledger.comReferences, change);
    }

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

/// Who subscribed in this process to one kind of event interface. A sink is released when it is
/// unadvised and the calls to it that run have ended, once: sinks need not count safely.
template <class Sink>
class SinkTable {
  public:
    static SinkTable& Get() {
        static SinkTable& table = *new SinkTable();
        return table;
    }

    DWORD Add(Sink* sink) {
        const std::uint64_t since = EventPump::Get().Start();
        auto entry = std::make_shared<Entry>(sink, since);
        const ExclusiveLock lock(m_lock);
        m_entries[++m_lastCookie] = std::move(entry);
        return m_lastCookie;
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

    template <class Function>
    void Tell(std::uint64_t number, Function function) {
        for (const std::shared_ptr<Entry>& entry : Since(number)) {
            function(*entry->sink);
        }
    }

  private:
    struct Entry {
        Entry(Sink* advised, std::uint64_t first) : sink(advised), since(first) {
            InterlockedIncrement(&SharedState::Get().Raw().ledger.comSinks);
        }
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;
        ~Entry() {
            sink->Release();
            InterlockedDecrement(&SharedState::Get().Raw().ledger.comSinks);
        }
        Sink* sink;
        std::uint64_t since;
    };

    std::vector<std::shared_ptr<Entry>> Since(std::uint64_t number) {
        const ExclusiveLock lock(m_lock);
        std::vector<std::shared_ptr<Entry>> chosen;
        for (const auto& [cookie, entry] : m_entries) {
            if (number >= entry->since) {
                chosen.push_back(entry);
            }
        }
        return chosen;
    }

    SRWLOCK m_lock = SRWLOCK_INIT;
    std::map<DWORD, std::shared_ptr<Entry>> m_entries;
    DWORD m_lastCookie = 0;
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
        *cookie = SinkTable<Sink>::Get().Add(sink);
        return call.Result(S_OK);
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
        CallScope call(Call::Unadvise);
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
