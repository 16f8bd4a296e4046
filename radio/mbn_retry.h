#pragma once

#include <windows.h>

#include <chrono>

#include "logging/log_scope.h"
#include "platform/pause.h"

/// A call of the Mobile Broadband API that is repeated while it fails: its service answers late when it has
/// just started, a modem when it is busy.
struct MbnCall {
    std::chrono::milliseconds pause;  ///< after each try, also after one that succeeded
    const wchar_t* triedText;         ///< takes the number of the try, from 0, and its HRESULT
    const wchar_t* failedText;        ///< takes the HRESULT of the last try
};

constexpr int kMbnTries = 5;

/// Makes the call, at most `kMbnTries` times. The HRESULT of the last one. Exceptions travel to the caller.
template <class Function>
HRESULT CallWithRetries(const LogScope& log, const MbnCall& words, Function call) {
    HRESULT result = E_FAIL;
    for (int tries = 0; tries < kMbnTries && FAILED(result); ++tries) {
        result = call();
        if (FAILED(result)) {
            log.Warning(words.triedText, tries, result);
        }
        Platform::Pause(words.pause);
    }
    if (FAILED(result)) {
        log.Error(words.failedText, result);
    }
    return result;
}
