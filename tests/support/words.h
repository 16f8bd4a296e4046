#pragma once

#include <gmock/gmock.h>

#include "tests/support/log_recorder.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"
#include "tests/support/scoped_watch.h"

/// What nearly every test is written with: lines of a log, values of the registry, what stands in a
/// function's place, and GoogleMock's matchers. A folder takes it over for its tests at once:
///
///     namespace RadioTests {
///     using namespace Rig::Words;
namespace Rig::Words {

using Orva::Shared::Level::kError;
using Orva::Shared::Level::kInformation;
using Orva::Shared::Level::kWarning;
using Rig::LogLine;
using Rig::Lines::Error;
using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using Rig::Lines::Verbose;
using Rig::Lines::Warning;

using Rig::RegistryBytes;
using Rig::RegistryNumber;
using Rig::RegistryText;
using Rig::RegistryValue;

using Rig::ScopedImport;
using Rig::ScopedProc;
using Rig::ScopedProcAddress;
using Rig::ScopedResult;
using Rig::ScopedWatch;

using testing::_;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsNull;
using testing::Not;
using testing::NotNull;
using testing::Pair;
using testing::SizeIs;
using testing::StrEq;

}  // namespace Rig::Words
