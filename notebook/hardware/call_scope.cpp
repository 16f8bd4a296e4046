#include "notebook/hardware/call_scope.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

constexpr DWORD kHoldPollMs = 10;

CallHook& Hook() {
    static CallHook& hook = *new CallHook();
    return hook;
}

Machine& State() {
    return SharedState::Get().Raw();
}

CallRule& RuleOf(Machine& machine, Call call) {
    return machine.rules[static_cast<std::size_t>(call)];
}

CallCount& CountOf(Machine& machine, Call call) {
    return machine.counts[static_cast<std::size_t>(call)];
}

}  // namespace

void SetCallHook(CallHook hook) {
    Hook() = std::move(hook);
}

CallScope::CallScope(Call call) : m_call(call), m_start(Now()) {
    Machine& machine = State();
    Activity& activity = SharedState::Get().OwnActivity();
    InterlockedIncrement(&activity.callsBegun);
    InterlockedExchange64(&activity.lastAt, m_start);
    InterlockedIncrement(&CountOf(machine, call).calls);
    m_traced = machine.traceOn != 0;
    const CallRule& rule = RuleOf(machine, call);
    if (rule.kind != RuleKind::None || rule.slowMs != 0) {
        Obey();
    }
    try {
        AskHook();
    } catch (...) {
        End();
        throw;
    }
}

CallScope::~CallScope() {
    End();
}

void CallScope::AskHook() {
    const std::optional<DWORD> answer = Hook() ? Hook()(m_call) : std::nullopt;
    if (answer) {
        m_refused = true;
        m_error = *answer;
        m_result = m_error;
    }
}

void CallScope::End() noexcept {
    const DWORD lastError = GetLastError();
    if (m_traced) {
        Trace(m_call, m_start, m_result, m_detail);
    }
    Activity& activity = SharedState::Get().OwnActivity();
    InterlockedExchange64(&activity.lastAt, Now());
    InterlockedIncrement(&activity.callsEnded);
    SetLastError(lastError);
}

void CallScope::Detail(const char* format, ...) noexcept {
    if (!m_traced) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(m_detail, sizeof(m_detail), format, arguments);
    va_end(arguments);
}

void CallScope::Obey() {
    RuleKind kind = RuleKind::None;
    DWORD slowMs = 0;
    {
        LockedMachine machine;
        CallRule& rule = RuleOf(*machine, m_call);
        slowMs = rule.slowMs;
        if (rule.kind != RuleKind::None && rule.skip != 0) {
            --rule.skip;
        } else if (rule.kind != RuleKind::None && TakeOne(rule.left)) {
            kind = rule.kind;
            m_error = rule.error;
            if (rule.left == 0 && kind == RuleKind::Fail) {
                rule.kind = RuleKind::None;
            }
        }
    }
    if (slowMs != 0) {
        Sleep(slowMs);
    }
    if (kind == RuleKind::Fail) {
        m_refused = true;
        m_result = m_error;
        InterlockedIncrement(&CountOf(State(), m_call).failed);
    } else if (kind != RuleKind::None) {
        WaitUntilStopped();
    }
}

void CallScope::WaitUntilStopped() {
    // Held by someone who tests; polling is good enough for that.
    const ServiceRun& service = State().service;
    const std::uint32_t run = service.runs;
    while (RuleOf(State(), m_call).kind == RuleKind::HoldUntilStopped && service.stopped == 0 &&
           service.runs == run) {
        Sleep(kHoldPollMs);
    }
}

void Trace(Call call, Micros start, DWORD result, const char* detail) noexcept {
    Machine& machine = State();
    if (machine.traceOn == 0) {
        return;
    }
    const auto number = static_cast<std::uint64_t>(InterlockedIncrement64(&machine.traceCount) - 1);
    TraceEntry& entry = machine.trace[number % kTraceCapacity];
    entry.at = start;
    entry.took = Now() - start;
    entry.process = GetCurrentProcessId();
    entry.thread = GetCurrentThreadId();
    entry.call = call;
    entry.result = result;
    std::snprintf(entry.detail, sizeof(entry.detail), "%s", detail);
}

}  // namespace Notebook
