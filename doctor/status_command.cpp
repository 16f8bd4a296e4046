#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <memory>
#include <string>
#include <vector>

#include "doctor/command_line.h"
#include "doctor/inspection/judgement.h"
#include "doctor/inspection/report.h"
#include "doctor/machine_now.h"

namespace Doctor {
namespace {

int Status(bool asJson) {
    const Inspection::State state = LookAtMachine();
    Print(asJson ? Inspection::StateAsJson(state) : Inspection::StateAsText(state));
    return 0;
}

int Check(bool asJson) {
    const Inspection::State state = LookAtMachine();
    const std::vector<Inspection::Finding> findings = Inspection::Judge(state);
    Print(asJson ? Inspection::FindingsAsJson(findings, state) : Inspection::FindingsAsText(findings));
    return Inspection::ExitCode(findings);
}

void Add(CLI::App& app, const char* name, const char* description, int (*run)(bool asJson), int& exitCode) {
    auto asJson = std::make_shared<bool>(false);
    CLI::App* const command = app.add_subcommand(name, description);
    command->add_flag("--json", *asJson, "As JSON");
    command->callback([asJson, run, &exitCode] { exitCode = run(*asJson); });
}

}  // namespace

void AddStatusCommand(CLI::App& app, int& exitCode) {
    Add(app, "status", "Shows this machine as the service sees it", &Status, exitCode);
}

void AddCheckCommand(CLI::App& app, int& exitCode) {
    Add(app, "check",
        "Judges it. Exit code 0: all well, 1: warnings, 2: it cannot work, 3: it cannot be told", &Check,
        exitCode);
}

}  // namespace Doctor
