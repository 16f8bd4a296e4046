// How an array comes out of a message.

#include <windows.h>
#include <oleauto.h>

/// In place of `LPSAFEARRAY_UserUnmarshal`: the same, and an array of references says again that it
/// is one. (Wine hands it over without any feature, where Windows keeps the feature.)
extern "C" unsigned char* __RPC_USER NotebookUnmarshalArray(ULONG* flags, unsigned char* buffer,
                                                            LPSAFEARRAY* array) {
    constexpr USHORT kElementKinds =
        FADF_BSTR | FADF_UNKNOWN | FADF_DISPATCH | FADF_VARIANT | FADF_RECORD | FADF_HAVEVARTYPE;
    unsigned char* const end = LPSAFEARRAY_UserUnmarshal(flags, buffer, array);
    if (*array != nullptr && ((*array)->fFeatures & kElementKinds) == 0) {
        (*array)->fFeatures |= FADF_UNKNOWN;
    }
    return end;
}
