#pragma once

#include <windows.h>
#include <oaidl.h>

// The part of the Mobile Broadband API that the service uses, declared here because not every
// compiler's headers have <mbnapi.h>. The operations are plain virtual functions in the order of
// Microsoft's "Mobile Broadband API Reference"; those that the service never calls stand only to
// keep the order.

// NOLINTBEGIN(readability-identifier-naming): the names are those of Microsoft's header

/// State of a radio (MBN_RADIO).
enum MBN_RADIO { MBN_RADIO_OFF = 0, MBN_RADIO_ON = 1 };

struct IMbnConnection;
struct IMbnSubscriberInformation;
struct MBN_INTERFACE_CAPS;
struct MBN_PROVIDER;

/// One mobile-broadband adapter. Its radio comes by QueryInterface.
struct IMbnInterface : public IUnknown {
    /// The adapter's identifier in registry form; the caller frees the text.
    virtual HRESULT STDMETHODCALLTYPE get_InterfaceID(BSTR* interfaceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetInterfaceCapability(MBN_INTERFACE_CAPS* capabilities) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSubscriberInformation(IMbnSubscriberInformation** information) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetReadyState(int* readyState) = 0;
    virtual HRESULT STDMETHODCALLTYPE InEmergencyMode(VARIANT_BOOL* emergencyMode) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHomeProvider(MBN_PROVIDER* provider) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPreferredProviders(SAFEARRAY** providers) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetPreferredProviders(SAFEARRAY* providers, ULONG* requestId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetVisibleProviders(ULONG* age, SAFEARRAY** providers) = 0;
    virtual HRESULT STDMETHODCALLTYPE ScanNetwork(ULONG* requestId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetConnection(IMbnConnection** connection) = 0;
};

/// The way to all mobile-broadband adapters.
struct IMbnInterfaceManager : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetInterface(LPCWSTR interfaceId, IMbnInterface** mbnInterface) = 0;
    /// The caller destroys the array; its elements are IUnknown references of the adapters.
    virtual HRESULT STDMETHODCALLTYPE GetInterfaces(SAFEARRAY** mbnInterfaces) = 0;
};

/// The radio of one adapter.
struct IMbnRadio : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE get_SoftwareRadioState(MBN_RADIO* state) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_HardwareRadioState(MBN_RADIO* state) = 0;
    /// Asynchronous: `OnSetSoftwareRadioStateComplete` reports the end.
    virtual HRESULT STDMETHODCALLTYPE SetSoftwareRadioState(MBN_RADIO state, ULONG* requestId) = 0;
};

/// What a sink of radio events implements.
struct IMbnRadioEvents : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnRadioStateChange(IMbnRadio* radio) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnSetSoftwareRadioStateComplete(IMbnRadio* radio, ULONG requestId,
                                                                      HRESULT status) = 0;
};

inline constexpr CLSID CLSID_MbnInterfaceManager = {
    0xBDFEE05B, 0x4418, 0x11DD, {0x90, 0xED, 0x00, 0x1C, 0x25, 0x7C, 0xCF, 0xF1}};
inline constexpr IID IID_IMbnInterfaceManager = {
    0xDCBBBAB6, 0x201B, 0x4BBB, {0xAA, 0xEE, 0x33, 0x8E, 0x36, 0x8A, 0xF6, 0xFA}};
inline constexpr IID IID_IMbnInterface = {
    0xDCBBBAB6, 0x2001, 0x4BBB, {0xAA, 0xEE, 0x33, 0x8E, 0x36, 0x8A, 0xF6, 0xFA}};
inline constexpr IID IID_IMbnRadio = {
    0xDCCCCAB6, 0x201F, 0x4BBB, {0xAA, 0xEE, 0x33, 0x8E, 0x36, 0x8A, 0xF6, 0xFA}};
inline constexpr IID IID_IMbnRadioEvents = {
    0xDCDDDAB6, 0x201F, 0x4BBB, {0xAA, 0xEE, 0x33, 0x8E, 0x36, 0x8A, 0xF6, 0xFA}};

// NOLINTEND(readability-identifier-naming)
