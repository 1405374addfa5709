#include "docs/Sources.h"

#include <cctype>
#include <cstring>
#include <filesystem>
#include <regex>

#include "docs/Texts.h"
#include "harness/TempDir.h"

namespace hx_docs {
namespace {

// Walks C++ code and collects its literals.
class LiteralScanner {
public:
    explicit LiteralScanner(const std::string& code) : m_code(code) {}

    std::vector<std::string> Scan() {
        while (m_at < m_code.size())
            Step();
        return m_literals;
    }

private:
    bool Starts(const char* text) const {
        return m_code.compare(m_at, std::strlen(text), text) == 0;
    }

    void SkipBehind(const char* end) {
        const size_t found = m_code.find(end, m_at);
        m_at = found == std::string::npos ? m_code.size() : found + std::strlen(end);
    }

    void Step() {
        if (Starts("//")) {
            SkipBehind("\n");
        } else if (Starts("/*")) {
            SkipBehind("*/");
        } else if (Starts("R\"")) {
            TakeRaw();
        } else if (Starts("\"")) {
            TakePlain('"');
        } else if (Starts("'") && (m_at == 0 || std::isdigit(m_code[m_at - 1]) == 0)) {
            TakePlain('\'');  // another ' separates digits
        } else {
            if (std::isspace(m_code[m_at]) == 0)
                m_beside = false;
            ++m_at;
        }
    }

    void Add(const std::string& text) {
        if (m_beside)
            m_literals.back() += text;
        else
            m_literals.push_back(text);
        m_beside = true;
    }

    void TakeRaw() {
        const size_t open = m_code.find('(', m_at);
        const std::string end = ")" + m_code.substr(m_at + 2, open - m_at - 2) + "\"";
        const size_t close = m_code.find(end, open);
        Add(m_code.substr(open + 1, close - open - 1));
        m_at = close + end.size();
    }

    void TakePlain(char quote) {
        std::string text;
        for (++m_at; m_code.at(m_at) != quote; ++m_at) {
            if (m_code[m_at] != '\\')
                text += m_code[m_at];
            else if (m_code[++m_at] == 'n')
                text += '\n';
            else
                text += m_code[m_at];
        }
        ++m_at;
        if (quote == '"')
            Add(text);
    }

    const std::string& m_code;
    size_t m_at = 0;
    bool m_beside = false;
    std::vector<std::string> m_literals;
};

}  // namespace

std::vector<std::string> Literals(const std::string& code) {
    return LiteralScanner(code).Scan();
}

std::vector<std::string> SourceTexts() {
    std::vector<std::string> texts;
    for (const char* folder : {HX_SOURCE "/src", HX_SOURCE "/apps"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h")
                continue;
            for (const std::string& literal : Literals(hx_test::ReadFile(entry.path())))
                texts.push_back(literal);
        }
    }
    for (const char* script : {"corvane26.template", "corvane26_service_script"}) {
        for (const std::string& line :
             Lines(hx_test::ReadFile(std::string(HX_PRODUCT_SOURCES "/") + script)))
            texts.push_back(line);
    }
    return texts;
}

std::vector<std::string> CommitScriptLines() {
    return Lines(hx_test::ReadFile(HX_EXPECTED_DIR "/commit_root.sh"));
}

std::vector<std::string> FixedPieces(const std::string& text) {
    static const std::regex filled(R"(%[1-9sd]|\$\{[A-Za-z_]+\}|\$[A-Za-z_]+)");
    const std::sregex_token_iterator first(text.begin(), text.end(), filled, -1);
    return {first, std::sregex_token_iterator()};
}

}  // namespace hx_docs
