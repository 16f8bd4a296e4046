#pragma once

namespace NLMUtils {

/// Decides both radios afresh after an automatic resume, on the control handler's thread, which
/// answers no other request until this returns. Always true.
bool SystemResumeHandler();

}  // namespace NLMUtils
