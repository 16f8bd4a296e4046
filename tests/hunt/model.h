#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/hunt/command.h"
#include "tests/hunt/threads.h"

namespace RandomEvents {

/// What a user, the system or a debugger sees of the notebook and its service.
struct Situation {
    std::vector<std::uint32_t> phys;    ///< software states, adapter by adapter
    std::vector<std::uint32_t> modems;  ///< software states
    std::string storedWlan;             ///< empty: none; "(a number)"
    std::string storedWwan;
    bool isRunning = false;
    std::uint32_t reported = 0;  ///< the state that the service manager was told last; 0: none
    bool switchesWlan = false;
    bool switchesWwan = false;
    bool hasTimedOut = false;   ///< the last switch of WLAN ran out of attempts
    bool changesModem = false;  ///< the service itself, now
    bool handlesCable = false;  ///< a cable event is being handled
    std::size_t wired = 0;      ///< connections that were ever wired
    int registrations = 0;      ///< for WLAN notifications, each with its handle
    int sinks = 0;
    bool hasLastRadio = false;  ///< keeps the radio of the modem's last completion

    friend bool operator==(const Situation&, const Situation&) = default;
    [[nodiscard]] std::string Text() const;
};

/// The rules of the service on a notebook of its own: what each thread does between two places where it
/// sleeps, waits or looks at a device. Who has a turn is told from outside.
class Model {
  public:
    explicit Model(const Shape& shape);
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;
    ~Model();

    /// In a fine step threads may lose their turn at each look at a device.
    void BeginStep(bool isFine);
    /// What the command does at its time, counted from now.
    void Do(const Command& command);
    /// False when that cannot be: nobody could have taken this turn, or time could not have gone on.
    [[nodiscard]] bool Take(Who who);
    /// Who could take a turn now, time included; nothing at rest.
    [[nodiscard]] std::optional<Who> NotAtRest() const;
    /// What goes with the process of a service that has stopped.
    void EndProcess();
    [[nodiscard]] Situation See() const;

  private:
    class Inside;
    std::unique_ptr<Inside> m_inside;
};

}  // namespace RandomEvents
