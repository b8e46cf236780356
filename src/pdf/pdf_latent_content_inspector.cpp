#include "pdf/pdf_latent_content_inspector.h"

#include <set>
#include <vector>

namespace tavrin {

namespace {

using Findings = PDFLatentContentInspector::Findings;

// What an action dictionary, with everything it chains to, does.
struct ActionKinds {
    bool script = false;
    bool launch = false;
    QPDFObjectHandle scriptAction;
    QPDFObjectHandle launchAction;
};

class ActionWalker {
public:
    // Follows `action` and its /Next chain, iteratively, each action once.
    ActionKinds walk(QPDFObjectHandle action) {
        ActionKinds kinds;
        std::vector<QPDFObjectHandle> pending{action};
        while (!pending.empty()) {
            QPDFObjectHandle a = pending.back();
            pending.pop_back();
            if (++count_ > PDFLatentContentInspector::maximumActions)
                throw std::runtime_error("too many actions to inspect");
            if (!a.isDictionary()) continue;
            if (a.isIndirect() && !seen_.insert(a.getObjGen()).second) continue;
            QPDFObjectHandle type = a.getKey("/S");
            const std::string name = type.isName() ? type.getName() : "";
            if (name == "/JavaScript" || a.hasKey("/JS")) {
                if (!kinds.script) kinds.scriptAction = a;
                kinds.script = true;
            }
            if (name == "/Launch") {
                if (!kinds.launch) kinds.launchAction = a;
                kinds.launch = true;
            }
            QPDFObjectHandle next = a.getKey("/Next");
            if (next.isDictionary()) pending.push_back(next);
            if (next.isArray())
                for (int i = next.getArrayNItems() - 1; i >= 0; --i) pending.push_back(next.getArrayItem(i));
        }
        return kinds;
    }

    // Every action of an additional-actions dictionary (/AA), merged.
    ActionKinds walkAdditional(QPDFObjectHandle aa) {
        ActionKinds merged;
        if (!aa.isDictionary()) return merged;
        for (const auto& key : aa.getKeys()) merge(merged, walk(aa.getKey(key)));
        return merged;
    }

    static void merge(ActionKinds& into, const ActionKinds& from) {
        if (from.script && !into.script) into.scriptAction = from.scriptAction;
        if (from.launch && !into.launch) into.launchAction = from.launchAction;
        into.script |= from.script;
        into.launch |= from.launch;
    }

private:
    std::set<QPDFObjGen> seen_;
    std::size_t count_ = 0;
};

// The label of the object that holds an action: the action itself when it has a number,
// otherwise the dictionary it sits in.
std::string holderLabel(QPDFObjectHandle action, QPDFObjectHandle holder) {
    return action.isIndirect() ? objectLabel(action) : objectLabel(holder);
}

void record(Findings& findings, const ActionKinds& kinds, QPDFObjectHandle holder, const std::string& where) {
    if (kinds.script) {
        findings.javaScriptLocations.push_back(where);
        findings.objects.push_back(holderLabel(kinds.scriptAction, holder) + ": JavaScript action (" + where + ")");
    }
    if (kinds.launch) {
        findings.launchLocations.push_back(where);
        findings.objects.push_back(holderLabel(kinds.launchAction, holder) + ": program launch action (" + where + ")");
    }
}

// Form fields that are not annotations (the parents of widgets) carry actions too.
void inspectFields(QPDFObjectHandle acroForm, ActionWalker& walker, Findings& findings) {
    QPDFObjectHandle fields = acroForm.getKey("/Fields");
    if (!fields.isArray()) return;
    std::set<QPDFObjGen> seen;
    std::vector<QPDFObjectHandle> pending = fields.getArrayAsVector();
    std::size_t visited = 0;
    while (!pending.empty()) {
        QPDFObjectHandle field = pending.back();
        pending.pop_back();
        if (++visited > PDFLatentContentInspector::maximumActions) throw std::runtime_error("too many form fields");
        if (!field.isDictionary()) continue;
        if (field.isIndirect() && !seen.insert(field.getObjGen()).second) continue;
        // A field that is its own widget was read with the page's annotations.
        if (!field.getKey("/Subtype").isName()) {
            ActionKinds kinds = walker.walkAdditional(field.getKey("/AA"));
            ActionWalker::merge(kinds, walker.walk(field.getKey("/A")));
            record(findings, kinds, field, "Form field action");
        }
        QPDFObjectHandle kids = field.getKey("/Kids");
        if (kids.isArray())
            for (int i = kids.getArrayNItems() - 1; i >= 0; --i) pending.push_back(kids.getArrayItem(i));
    }
}

}  // namespace

std::optional<PDFLatentContentInspector::Findings> PDFLatentContentInspector::inspect(PDFDocument& document) {
    auto catalog = document.catalog();
    if (!catalog) return std::nullopt;
    Findings findings;
    try {
        ActionWalker walker;
        QPDFObjectHandle names = catalog->getKey("/Names");
        if (names.isDictionary() && names.getKey("/JavaScript").isDictionary()) {
            findings.javaScriptLocations.emplace_back("JavaScript name tree");
            findings.objects.push_back(objectLabel(names.getKey("/JavaScript").isIndirect() ? names.getKey("/JavaScript")
                                                                                              : *catalog) +
                                       ": JavaScript name tree");
        }
        QPDFObjectHandle openAction = catalog->getKey("/OpenAction");
        if (openAction.isDictionary()) record(findings, walker.walk(openAction), *catalog, "Document open action");
        if (catalog->getKey("/AA").isDictionary()) {
            // Any catalog-level trigger counts, whatever it runs.
            findings.javaScriptLocations.emplace_back("Additional actions (/AA)");
            findings.objects.push_back(objectLabel(*catalog) + ": document additional actions (/AA)");
        }
        auto pages = document.pages();
        for (std::size_t index = 0; index < pages.size(); ++index) {
            const std::string pageName = "page " + std::to_string(index + 1);
            record(findings, walker.walkAdditional(pages[index].getKey("/AA")), pages[index],
                   "Page actions on " + pageName);
        }
        document.forEachAnnotation([&](std::size_t pageIndex, QPDFObjectHandle, QPDFObjectHandle annotation) {
            ActionKinds kinds = walker.walk(annotation.getKey("/A"));
            ActionWalker::merge(kinds, walker.walkAdditional(annotation.getKey("/AA")));
            record(findings, kinds, annotation, "Annotation action on page " + std::to_string(pageIndex + 1));
        });
        QPDFObjectHandle acroForm = catalog->getKey("/AcroForm");
        findings.hasAcroForm = acroForm.isDictionary();
        if (findings.hasAcroForm) inspectFields(acroForm, walker, findings);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    return findings;
}

std::optional<PDFLatentContentInspector::Findings> PDFLatentContentInspector::inspect(const std::filesystem::path& at) {
    auto document = PDFDocument::open(at);
    if (!document) return std::nullopt;
    return inspect(*document);
}

bool PDFLatentContentInspector::confirmsNoJavaScript(const std::filesystem::path& at) {
    auto findings = inspect(at);
    return findings && !findings->refusesCleaning();
}

}  // namespace tavrin
