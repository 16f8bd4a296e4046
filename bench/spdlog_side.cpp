#include "bench/spdlog_side.h"

#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace Bench {
namespace {

constexpr std::size_t kPlaces = 8192;
constexpr std::size_t kFileBytes = 2048 * 1024;
constexpr std::size_t kFiles = 9;
constexpr const char* kPattern = "%Y/%m/%d %H:%M:%S.%e|%8t|%-11l|%v";

}  // namespace

struct SpdlogAsync::State {
    std::shared_ptr<spdlog::details::thread_pool> pool =
        std::make_shared<spdlog::details::thread_pool>(kPlaces, 1);
    std::shared_ptr<spdlog::async_logger> logger;
};

SpdlogAsync::SpdlogAsync(const std::string& path) : m_state(std::make_unique<State>()) {
    auto file = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, kFileBytes, kFiles);
    m_state->logger = std::make_shared<spdlog::async_logger>("bench", file, m_state->pool,
                                                             spdlog::async_overflow_policy::block);
    m_state->logger->set_pattern(kPattern);
}

SpdlogAsync::~SpdlogAsync() = default;

void SpdlogAsync::WriteLines(int count) {
    for (int line = 0; line < count; ++line) {
        m_state->logger->info(
            "Utils::IsServicePresent|Service Name = {}, Running Status To be checked = {}, To Get version "
            "Info Status = {}",
            "WlanSvc", line, 1);
    }
}

void SpdlogAsync::WaitUntilWritten() {
    m_state->logger->flush();
    while (m_state->pool->queue_size() != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // The last one is taken, but may not be written.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

void SpdlogDisabledCalls(int count) {
    static spdlog::logger logger("disabled", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger.set_level(spdlog::level::info);
    for (int i = 0; i < count; ++i) {
        logger.trace("Service Name = {}, Running Status To be checked = {}", "WlanSvc", i);
        // Each call looks at the level anew.
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

void SpdlogDisabledCallsOfDefaultLogger(int count) {
    spdlog::set_level(spdlog::level::info);
    for (int i = 0; i < count; ++i) {
        spdlog::trace("Service Name = {}, Running Status To be checked = {}", "WlanSvc", i);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

}  // namespace Bench
