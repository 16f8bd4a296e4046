#include "doctor/analysis/texts.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace Doctor {
namespace {

using ::testing::Contains;
using ::testing::Each;

/// The string literals of C++ sources, as the compiler sees them: comments left out, escapes resolved,
/// neighbours joined.
class Literals {
  public:
    explicit Literals(const std::string& source) : m_source(source) {
        while (m_at < m_source.size()) {
            Step();
        }
        End();
    }

    [[nodiscard]] const std::set<std::string>& Wide() const { return m_wide; }
    [[nodiscard]] const std::set<std::string>& Narrow() const { return m_narrow; }

  private:
    void Step() {
        const char c = m_source[m_at];
        if (m_source.compare(m_at, 2, "//") == 0) {
            m_at = std::min(m_source.find('\n', m_at), m_source.size());
        } else if (m_source.compare(m_at, 2, "/*") == 0) {
            m_at = std::min(m_source.find("*/", m_at), m_source.size() - 2) + 2;
        } else if (c == '\'' && m_at > 0 &&
                   std::isdigit(static_cast<unsigned char>(m_source[m_at - 1])) == 0) {
            for (++m_at; m_source[m_at] != '\''; ++m_at) {
                m_at += m_source[m_at] == '\\' ? 1 : 0;
            }
            ++m_at;
            End();
        } else if (c == '"') {
            TakeLiteral();
        } else {
            if (c == 'L' && m_at + 1 < m_source.size() && m_source[m_at + 1] == '"') {
                m_isWide = true;
            } else if (std::isspace(static_cast<unsigned char>(c)) == 0) {
                End();
            }
            ++m_at;
        }
    }

    void TakeLiteral() {
        m_isOpen = true;
        for (++m_at; m_source[m_at] != '"'; ++m_at) {
            if (m_source[m_at] != '\\') {
                m_text.push_back(m_source[m_at]);
                continue;
            }
            ++m_at;
            m_text.push_back(m_source[m_at] == 'n' ? '\n' : m_source[m_at]);
        }
        ++m_at;
    }

    void End() {
        if (m_isOpen) {
            (m_isWide ? m_wide : m_narrow).insert(m_text);
        }
        m_isOpen = false;
        m_isWide = false;
        m_text.clear();
    }

    const std::string& m_source;
    std::size_t m_at = 0;
    std::string m_text;
    bool m_isOpen = false;
    bool m_isWide = false;
    std::set<std::string> m_wide;
    std::set<std::string> m_narrow;
};

/// What stands in the sources of the service.
class TextsOfTheService : public ::testing::Test {
  protected:
    TextsOfTheService() {
        for (const char* const folder :
             {"bios", "core", "logging", "network", "radio", "registry", "service"}) {
            for (const auto& entry :
                 std::filesystem::directory_iterator(std::filesystem::path(DOCTOR_SOURCES) / folder)) {
                if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h") {
                    Add(entry.path());
                }
            }
        }
    }

    std::set<std::string> m_wide;
    std::set<std::string> m_narrow;

  private:
    void Add(const std::filesystem::path& path) {
        std::ifstream file(path);
        const std::string source{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        const Literals literals(source);
        m_wide.insert(literals.Wide().begin(), literals.Wide().end());
        m_narrow.insert(literals.Narrow().begin(), literals.Narrow().end());
    }
};

TEST_F(TextsOfTheService, HoldEveryTextThatTheAnalysisKnows) {
    for (const KnownText& known : KnownTexts()) {
        EXPECT_THAT(m_wide, Contains(known.format)) << known.operation;
    }
}

TEST_F(TextsOfTheService, HoldEveryOperationThatTheAnalysisKnows) {
    for (const KnownText& known : KnownTexts()) {
        EXPECT_THAT(m_narrow, Contains(known.operation));
    }
    EXPECT_THAT(OtherOperations(), Each(::testing::ResultOf(
                                       [this](const char* name) { return m_narrow.contains(name); }, true)));
}

TEST_F(TextsOfTheService, NameNoOperationThatTheAnalysisDoesNotKnow) {
    std::size_t operations = 0;
    for (const std::string& text : m_narrow) {
        const std::size_t colons = text.find("::");
        if (colons != std::string::npos && text.find(' ') == std::string::npos) {
            EXPECT_TRUE(IsOperationOfService(text)) << text;
            ++operations;
        }
    }
    EXPECT_GT(operations, 50U);
}

TEST(ReadText, GivesTheValuesOfItsConversions) {
    const Reading reading = Read("ServiceUtils::SwitchWwanStatus",
                                 "SetSoftwareRadioState failed with error in retry 3: HRESULT : 0x8054820F");
    EXPECT_EQ(reading.said, Said::kWwanSetFailed);
    EXPECT_EQ(reading.numbers[0], 3);
    EXPECT_EQ(reading.numbers[1], 0x8054820F);
}

TEST(ReadText, GivesATextWithAllThatItHolds) {
    const Reading reading = Read("NLMUtils::PrintAdapterInfo", "Description   : a | b %d \"c\"");
    EXPECT_EQ(reading.said, Said::kAdapterDescription);
    EXPECT_EQ(reading.text, "a | b %d \"c\"");
}

TEST(ReadText, KnowsNothingOfATextThatGoesOn) {
    EXPECT_EQ(Read("ServiceUtils::CheckWlanStatus", "Phy state : 1 and more").said, Said::kNothingKnown);
    EXPECT_EQ(Read("ServiceUtils::CheckWlanStatus", "Phy state : ").said, Said::kNothingKnown);
}

TEST(ReadText, KnowsATextOnlyUnderItsOperation) {
    EXPECT_EQ(Read("ServiceUtils::CheckWwanStatus", "Phy state : 1").said, Said::kNothingKnown);
    EXPECT_EQ(Read("Other::Operation", "Phy state : 1").said, Said::kNothingKnown);
}

TEST(ReadText, ReadsEveryKnownTextAsItself) {
    for (const KnownText& known : KnownTexts()) {
        std::string text;
        for (std::string_view format = known.format; !format.empty();) {
            const std::size_t percent = format.find('%');
            text += format.substr(0, percent);
            if (percent == std::string_view::npos) {
                break;
            }
            text += "1";
            format.remove_prefix(format.find_first_of("duxXsS", percent) + 1);
        }
        EXPECT_EQ(Read(known.operation, text).said, known.said) << known.operation << " " << text;
    }
}

}  // namespace
}  // namespace Doctor
