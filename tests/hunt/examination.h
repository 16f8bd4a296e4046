#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

#include "tests/hunt/command.h"
#include "tests/hunt/stage.h"

namespace RandomEvents {

/// What must hold of a service after whatever it went through, when nothing fails any more: a cable switches
/// both radios off, its end brings them back as they were chosen, and what the user chooses is remembered.
class Examination {
  public:
    Examination(const Examination&) = delete;
    Examination& operator=(const Examination&) = delete;
    virtual ~Examination() = default;

  protected:
    Examination(Stage& stage, const Shape& shape) : m_stage(stage), m_shape(shape) {}

    /// Has the commands done and waits until all is at rest; keeps `m_runs`. A service that has stopped is
    /// ended.
    virtual void Take(const Step& step) = 0;
    /// Those commands that the notebook has something for, at once.
    void Take(std::initializer_list<const char*> commands);
    /// Keeps the first that does not hold.
    void Expect(bool holds, const std::string& what);

    /// Mends the devices. A service that lacks a subscription or a setting is started anew.
    void Mend();
    /// Both radios, with each choice, which stays through a cable.
    void Examine();
    void Choose(const std::string& state);
    void PlugIn();
    void PullOut();

    Stage& m_stage;
    const Shape m_shape;
    bool m_runs = false;  ///< a service, or what is left of one
    std::optional<std::string> m_wrong;

  private:
    void ExpectChosen(const std::string& state);
    [[nodiscard]] bool IsWhole() const;
    [[nodiscard]] bool WlanIs(const Situation& seen, bool on) const;
};

/// Whether a radio is to be on: what cannot be read as a text counts as on.
[[nodiscard]] bool CountsAsOn(const std::string& stored);

}  // namespace RandomEvents
