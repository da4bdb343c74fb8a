// SPDX-License-Identifier: Apache-2.0
#include "tests/apigen/XmlOracles.h"

#include <apigen/ApiException.h>

#include <expat.h>
#include <pugixml.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <type_traits>
#include <vector>

#include "support/apigen/Document.h"
#include "support/apigen/XmlText.h"

namespace apigen::test {
namespace {

std::string ShowText(std::string_view text) {
    return std::to_string(text.size()).append(":").append(text);
}

std::string ShowEntry(std::string_view key, const std::string& content) {
    return std::string(key).append("=").append(content).append(";");
}

std::string ShowChildren(const std::string& children) {
    return "{" + children + "}";
}

std::string Show(const CDocument& document, NodeId node) {
    if (!document.HasChildren(node)) return ShowText(document.Text(node));
    std::string children;
    for (NodeId child = document.FirstChild(node); child != CDocument::None;
         child = document.NextSibling(child)) {
        children += ShowEntry(document.Key(child), Show(document, child));
    }
    return ShowChildren(children);
}

// Base64 as the standard describes it, as plainly as can be.

constexpr std::string_view Base64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string EncodeBase64(const std::string& bytes) {
    std::string bits;
    for (const char c : bytes) {
        for (int bit = 7; bit >= 0; --bit) {
            bits += (static_cast<unsigned char>(c) >> bit & 1) != 0 ? '1' : '0';
        }
    }
    std::string text;
    for (std::size_t i = 0; i < bits.size(); i += 6) {
        std::string sextet = bits.substr(i, 6);
        sextet.resize(6, '0');
        text += Base64Alphabet[std::stoul(sextet, nullptr, 2)];
    }
    while (text.size() % 4 != 0) {
        text += '=';
    }
    return text;
}

/// Empty for anything that is not what the encoder makes.
std::optional<std::string> DecodeBase64(const std::string& text) {
    std::string bytes;
    unsigned long group = 0;
    int bits = 0;
    for (const char c : text) {
        const auto digit = Base64Alphabet.find(c);
        if (digit == std::string_view::npos) break;
        group = group << 6 | digit;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(group >> bits & 0xFF);
        }
    }
    if (EncodeBase64(bytes) != text) return std::nullopt;
    return bytes;
}

enum class EVerdict {
    Accepted,
    Malformed,
    AgainstOurRules,  // well-formed, but something that we refuse
    NoOpinion
};

struct SJudgement {
    EVerdict Verdict = EVerdict::NoOpinion;
    std::string Tree;
    std::string Reason;
};

std::string ToLower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

/// Collects what expat reports, and what of it is against our rules.
class CExpatJudge {
public:
    CExpatJudge() : m_parser(XML_ParserCreate("UTF-8")) {
        XML_SetUserData(m_parser.get(), this);
        XML_SetXmlDeclHandler(m_parser.get(), [](void* self, const char* version, const char* encoding, int) {
            static_cast<CExpatJudge*>(self)->OnDeclaration(version, encoding);
        });
        XML_SetStartDoctypeDeclHandler(m_parser.get(),
                                       [](void* self, const char*, const char*, const char*, int) {
                                           static_cast<CExpatJudge*>(self)->m_against = "DOCTYPE";
                                       });
        XML_SetElementHandler(
            m_parser.get(),
            [](void* self, const char* name, const char** attributes) {
                static_cast<CExpatJudge*>(self)->OnStart(name, attributes);
            },
            [](void* self, const char* name) { static_cast<CExpatJudge*>(self)->OnEnd(name); });
        XML_SetCharacterDataHandler(m_parser.get(), [](void* self, const char* text, int length) {
            static_cast<CExpatJudge*>(self)->OnText({text, static_cast<std::size_t>(length)});
        });
    }

    SJudgement Judge(std::string_view text) {
        if (XML_Parse(m_parser.get(), text.data(), static_cast<int>(text.size()), 1) != XML_STATUS_OK) {
            // Expat knows the names of the fourth edition, which had fewer letters beyond ASCII; and a set
            // of characters that is declared to be ASCII doesn't concern us.
            const auto error = XML_GetErrorCode(m_parser.get());
            const auto at = static_cast<std::size_t>(XML_GetCurrentByteIndex(m_parser.get()));
            const bool isOldName = error == XML_ERROR_INVALID_TOKEN && at < text.size() &&
                                   static_cast<unsigned char>(text[at]) >= 0x80;
            // With a document type of its own, expat stops seeing what it would have to report.
            const bool hasDoctype = m_against == "DOCTYPE";
            const EVerdict verdict = hasDoctype  ? EVerdict::AgainstOurRules
                                     : isOldName ? EVerdict::NoOpinion
                                                 : EVerdict::Malformed;
            return {verdict, {}, std::string(XML_ErrorString(error)) + " at " + std::to_string(at)};
        }
        if (!m_against.empty()) return {EVerdict::AgainstOurRules, {}, m_against};
        return {EVerdict::Accepted, m_tree, {}};
    }

private:
    struct SElement {
        bool IsBase64 = false;
        std::string Text;
        std::string Children;
    };

    void OnDeclaration(std::string_view version, const char* encoding) {
        // A fault of its own, but one that expat doesn't look for.
        if (version.size() < 3 || version.substr(0, 2) != "1." ||
            version.find_first_not_of("0123456789", 2) != std::string_view::npos) {
            m_against = "version";
        }
        if (encoding == nullptr) return;
        const std::string name = ToLower(encoding);
        if (name != "utf-8" && name != "us-ascii") m_against = "character set";
    }

    void OnStart(std::string_view name, const char** attributes) {
        if (m_depth != 0 && !IsAsciiName(name)) m_against = "key";
        if (++m_depth > 256) m_against = "depth";
        if (!m_against.empty()) return;
        SElement& element = m_open.emplace_back();
        for (; *attributes != nullptr; attributes += 2) {
            if (std::string_view(attributes[0]) != "encoding") continue;
            element.IsBase64 = true;
            if (std::string_view(attributes[1]) != "base64") m_against = "encoding";
        }
    }

    void OnText(std::string_view text) {
        if (m_against.empty()) m_open.back().Text.append(text);
    }

    void OnEnd(std::string_view name) {
        --m_depth;
        if (!m_against.empty()) return;
        SElement element = std::move(m_open.back());
        m_open.pop_back();
        std::string content;
        if (!element.Children.empty()) {
            content = ShowChildren(element.Children);
        } else if (!element.IsBase64) {
            content = ShowText(element.Text);
        } else if (const auto decoded = DecodeBase64(element.Text)) {
            content = ShowText(*decoded);
        } else {
            m_against = "base64";
        }
        (m_open.empty() ? m_tree : m_open.back().Children) +=
            m_open.empty() ? content : ShowEntry(name, content);
    }

    static bool IsAsciiName(std::string_view name) {
        constexpr std::string_view Start = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
        constexpr std::string_view Later =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_0123456789-.";
        return name.find_first_of(Start) == 0 && name.find_first_not_of(Later) == std::string_view::npos;
    }

    struct SFree {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };
    std::unique_ptr<std::remove_pointer_t<XML_Parser>, SFree> m_parser;
    std::string m_against;
    std::size_t m_depth = 0;
    std::vector<SElement> m_open;
    std::string m_tree;
};

std::string ShowPugixml(const pugi::xml_node& element) {
    std::string text;
    std::string children;
    for (const auto& node : element.children()) {
        if (node.type() == pugi::node_element) {
            children += ShowEntry(node.name(), ShowPugixml(node));
        } else if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) {
            text += node.value();
        }
    }
    if (!children.empty()) return ShowChildren(children);
    if (element.attribute("encoding")) text = DecodeBase64(text).value_or("no base64");
    return ShowText(text);
}

std::string ReadWithPugixml(std::string_view text) {
    pugi::xml_document document;
    const auto result = document.load_buffer(
        text.data(), text.size(), pugi::parse_default | pugi::parse_ws_pcdata, pugi::encoding_utf8);
    return result ? ShowPugixml(document.document_element())
                  : std::string("refused: ") + result.description();
}

}  // namespace

SOutcome ReadWhole(std::string_view text) {
    CDocument document;
    try {
        ParseXml(std::string(text), document);
    } catch (const BrokenMessageError& error) {
        return {false, {}, error.what()};
    }
    return {true, Show(document, CDocument::Root), {}};
}

std::string FindDisagreement(std::string_view text) {
    const SOutcome ours = ReadWhole(text);
    const SJudgement expat = CExpatJudge().Judge(text);
    switch (expat.Verdict) {
        case EVerdict::Accepted:
            if (!ours.IsAccepted) return "expat accepts; " + ours.Message;
            if (ours.Tree != expat.Tree) return "expat reads " + expat.Tree + "\nwe read " + ours.Tree;
            break;
        case EVerdict::Malformed:
        case EVerdict::AgainstOurRules:
            if (ours.IsAccepted) return "accepted, although: " + expat.Reason;
            break;
        case EVerdict::NoOpinion:
            break;
    }
    if (!ours.IsAccepted) return {};
    const std::string pugixml = ReadWithPugixml(text);
    return pugixml == ours.Tree ? "" : "pugixml reads " + pugixml + "\nwe read " + ours.Tree;
}

}  // namespace apigen::test
