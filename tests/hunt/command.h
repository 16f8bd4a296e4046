#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace RandomEvents {

/// Numbers that are the same everywhere for the same seed.
class Random {
  public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t Next();
    /// Below `count`, which is not 0.
    std::uint32_t Below(std::uint32_t count) { return static_cast<std::uint32_t>(Next() % count); }
    bool OneIn(std::uint32_t count) { return Below(count) == 0; }

  private:
    std::uint64_t m_state;
};

enum class Verb {
    kPlug,
    kPlugWithoutAddress,
    kUnplug,
    kSoftAdapter,
    kFillAdapters,
    kHideAdapters,
    kShowAdapters,
    kConnectionEvent,
    kUnknownConnectionEvent,
    kWifi,
    kWifiLink,
    kWifiHardware,
    kWifiAvailable,
    kWifiNotify,
    kWifiNotifyOdd,
    kPhyRefuses,
    kWwan,
    kModemConfirms,
    kModemIsDeaf,
    kModemRadio,
    kModemReverts,
    kModemRefuses,
    kModemRequest,
    kAirplane,
    kAirplaneValue,
    kAirplaneMissing,
    kFeature,
    kOddSetting,
    kSecondSetting,
    kNoSecondSetting,
    kSettingTimesOut,
    kProvider,
    kNeighbour,
    kLateNeighbour,
    kStored,
    kStoredNumber,
    kSuspend,
    kResume,
    kStart,
    kStop,
    kPreshutdown,
};

struct Shape;

/// One thing that happens to the notebook, as its controller has it: "plug cable 1 dhcp 700".
struct Command {
    Verb verb;
    std::string text;
    std::vector<std::string> choices;  ///< of the words, those that could have been others
    std::uint32_t at = 0;              ///< milliseconds after its step begins

    /// `for-ever` and `never` are `Notebook::kForEver`.
    [[nodiscard]] std::uint32_t Number(std::size_t choice) const;
    [[nodiscard]] bool Is(std::size_t choice, std::string_view word) const { return choices[choice] == word; }
    [[nodiscard]] bool IsOn(std::size_t choice) const { return Is(choice, "on"); }
    /// Whether it ends the service.
    [[nodiscard]] bool Stops() const { return verb == Verb::kStop || verb == Verb::kPreshutdown; }
    /// Whether a notebook of that shape has what the command is about.
    [[nodiscard]] bool FitsOn(const Shape& shape) const;
};

[[nodiscard]] Command DrawCommand(Random& random);
/// Throws `std::runtime_error` for what is no command.
[[nodiscard]] Command ReadCommand(std::string_view text);

/// What the notebook is made of.
struct Shape {
    std::uint32_t wlanAdapters = 1;
    std::uint32_t phys = 2;
    std::uint32_t modems = 1;

    static constexpr std::uint32_t kCables = 2;
};

/// Commands that come at once, or soon after one another, and how threads take turns at them.
struct Step {
    std::vector<Command> commands;
    std::uint64_t seed = 1;
    bool isFine = false;  ///< threads may lose their turn at each look at a device

    [[nodiscard]] std::string Text() const;
};

/// A notebook from a fresh start on.
struct Day {
    Shape shape;
    std::vector<Step> steps;

    /// As `ReadDay` reads it.
    [[nodiscard]] std::string Text() const;
    /// As the notebook's runner plays it (notebook/runner/scenario.py).
    [[nodiscard]] std::string ScenarioText() const;
};

enum class Way { kSettled, kOverlapping };

[[nodiscard]] Day DrawDay(Random& random, Way way, std::uint32_t steps);
[[nodiscard]] Day ReadDay(const std::string& text);

}  // namespace RandomEvents
