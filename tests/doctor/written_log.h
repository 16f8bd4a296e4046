#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/analysis/analysis.h"

namespace Doctor {

/// A folder of a test's own, gone with it.
class ScratchFolder {
  public:
    ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder();

    std::filesystem::path Write(const std::string& name, std::string_view bytes) const;
    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

  private:
    std::filesystem::path m_path;
};

/// A log as the service writes it, line by line, a hundredth of a second apart.
class WrittenLog {
  public:
    /// The thread and the operation of the lines that follow.
    WrittenLog& On(std::uint32_t thread, std::string operation);
    WrittenLog& In(std::string operation) { return On(m_thread, std::move(operation)); }
    WrittenLog& Information(std::string_view text) { return Line("Information", text); }
    WrittenLog& Error(std::string_view text) { return Line("Error", text); }
    WrittenLog& Warning(std::string_view text) { return Line("Warning", text); }
    WrittenLog& TraceIn(std::string_view text = "") { return Line("TraceIn", text); }
    WrittenLog& TraceOut(std::string_view text = "") { return Line("TraceOut", text); }
    WrittenLog& Line(std::string_view level, std::string_view text);
    /// Time passes.
    WrittenLog& Later(Time milliseconds);
    WrittenLog& At(Time time);

    /// What many tests begin with: a service that has started and decided, without a cable and a modem.
    WrittenLog& Started(std::string_view wlanSetting = "Enabled");
    /// The lines of a look at Wi-Fi.
    WrittenLog& LooksAtWifi(bool on);
    /// An operation's look at the adapters.
    WrittenLog& LooksAtAdaptersBy(std::string operation, bool cable) {
        return In(std::move(operation)).LooksAtAdapters(cable);
    }
    /// A cable event with its look at the adapters, up to what it leads to.
    WrittenLog& CableIn();
    WrittenLog& CableOut(bool another = false);
    WrittenLog& EventEnds();
    /// A whole switch of Wi-Fi that works.
    WrittenLog& SwitchesWifi(bool on);

    [[nodiscard]] const std::string& Text() const { return m_text; }
    [[nodiscard]] Time Now() const { return m_time; }

  private:
    WrittenLog& LooksAtAdapters(bool cable);

    std::string m_text = "\xEF\xBB\xBF";
    Time m_time;
    std::uint32_t m_thread = 0x10;
    std::string m_operation;

  public:
    WrittenLog();
};

/// What is said of one log with these bytes.
Machine Analysed(std::string_view bytes, const Question& question = {});
std::string VerdictOf(std::string_view bytes, const Question& question = {});

}  // namespace Doctor
