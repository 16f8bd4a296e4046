#include "tests/support/fake_unknown.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Rig {

namespace {

/// Guards every fake's counts and the list of them.
Detail::RigLock& FakesLock() {
    static Detail::RigLock& lock = *new Detail::RigLock();
    return lock;
}

std::vector<const FakeObject*>& Fakes() {
    static auto& fakes = *new std::vector<const FakeObject*>();
    return fakes;
}

}  // namespace

FakeObject::FakeObject(std::string name) : m_name(std::move(name)) {
    const Detail::RigLockHolder hold(FakesLock());
    Fakes().push_back(this);
}

FakeObject::~FakeObject() {
    {
        const Detail::RigLockHolder hold(FakesLock());
        Fakes().erase(std::find(Fakes().begin(), Fakes().end(), this));
    }
    if (m_references != 0) {
        ADD_FAILURE() << "Fake " << m_name << " ends with " << m_references
                      << " reference(s) that were not given back";
    }
}

long FakeObject::References() const {
    const Detail::RigLockHolder hold(FakesLock());
    return m_references;
}

long FakeObject::ReferencesTaken() const {
    const Detail::RigLockHolder hold(FakesLock());
    return m_taken;
}

void FakeObject::ExpectHeld(const char* method) const {
    if (References() == 0) {
        ADD_FAILURE() << "Fake " << m_name << ": " << method << " is called by code that holds no reference";
    }
}

HRESULT FakeObject::HandOut(REFIID interfaceId, void** object) {
    return Give(interfaceId, object);
}

HRESULT FakeObject::Query(REFIID interfaceId, void** object) {
    ExpectHeld("QueryInterface");
    return Give(interfaceId, object);
}

HRESULT FakeObject::Give(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = Find(interfaceId);
    if (*object == nullptr) {
        return E_NOINTERFACE;
    }
    const Detail::RigLockHolder hold(FakesLock());
    ++m_references;
    ++m_taken;
    return S_OK;
}

ULONG FakeObject::TakeReference() {
    ExpectHeld("AddRef");
    const Detail::RigLockHolder hold(FakesLock());
    ++m_taken;
    return static_cast<ULONG>(++m_references);
}

ULONG FakeObject::GiveReferenceBack() {
    ExpectHeld("Release");
    const Detail::RigLockHolder hold(FakesLock());
    m_references = std::max(m_references - 1, 0L);
    return static_cast<ULONG>(m_references);
}

std::vector<FakeObject::Held> FakeObject::All() {
    const Detail::RigLockHolder hold(FakesLock());
    std::vector<Held> all;
    for (const FakeObject* fake : Fakes()) {
        all.push_back({fake, fake->m_name, fake->m_references});
    }
    return all;
}

}  // namespace Rig
