// Scrubs the body of a long Word report with tracked changes, comments and revision ids on
// every page, as the Office writer does for word/document.xml, and prints the time and the
// peak resident memory. Usage: tavrin-office-scrub-bench [PAGES] [RUNS]
#include <sys/resource.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <fmt/format.h>

#include "office/office_xml_scrubber.h"

namespace {

// About 17 KB of markup per page (5 MB for 300 pages): paragraphs of runs with revision ids, an insertion, a
// deletion, a formatting change, a comment anchor, a move and a hidden run.
std::string report(int pages) {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>"
        "<w:document xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\" "
        "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\" "
        "xmlns:w14=\"http://schemas.microsoft.com/office/word/2010/wordml\"><w:body>";
    int id = 0;
    for (int page = 0; page < pages; ++page) {
        for (int paragraph = 0; paragraph < 23; ++paragraph) {
            const std::string rsid = fmt::format("00{:06X}", (page * 31 + paragraph) & 0xFFFFFF);
            xml += fmt::format("<w:p w:rsidR=\"{0}\" w:rsidRDefault=\"{0}\" w14:paraId=\"{1:08X}\"><w:pPr><w:jc w:val=\"both\"/>"
                               "</w:pPr>", rsid, page * 100 + paragraph);
            for (int r = 0; r < 3; ++r)
                xml += fmt::format("<w:r w:rsidRPr=\"{}\"><w:rPr><w:sz w:val=\"22\"/></w:rPr><w:t xml:space=\"preserve\">"
                                   "Quarterly revenue for the region grew by {} percent against plan. </w:t></w:r>",
                                   rsid, page + r);
            if (paragraph % 3 == 0) {
                xml += fmt::format("<w:ins w:id=\"{}\" w:author=\"Jane Roe\" w:date=\"2024-03-05T14:02:09Z\"><w:r><w:t>"
                                   "inserted sentence {} </w:t></w:r></w:ins>", ++id, page);
                xml += fmt::format("<w:del w:id=\"{}\" w:author=\"John Doe\" w:date=\"2024-03-06T09:00:00Z\"><w:r>"
                                   "<w:delText>deleted words {} </w:delText></w:r></w:del>", ++id, page);
            }
            if (paragraph % 6 == 1)
                xml += fmt::format("<w:r><w:rPr><w:b/><w:rPrChange w:id=\"{}\" w:author=\"Jane Roe\" w:date=\"2024-03-05T"
                                   "14:02:09Z\"><w:rPr/></w:rPrChange></w:rPr><w:t>bold now</w:t></w:r>", ++id);
            if (paragraph == 5)
                xml += fmt::format("<w:commentRangeStart w:id=\"{0}\"/><w:r><w:t>commented</w:t></w:r><w:commentRangeEnd "
                                   "w:id=\"{0}\"/><w:r><w:commentReference w:id=\"{0}\"/></w:r>", page);
            if (paragraph == 9)
                xml += fmt::format("<w:moveFromRangeStart w:id=\"{0}\" w:author=\"Jane Roe\" w:name=\"move{0}\"/>"
                                   "<w:moveFrom w:id=\"{1}\"><w:r><w:t>moved away</w:t></w:r></w:moveFrom>"
                                   "<w:moveFromRangeEnd w:id=\"{0}\"/>", 100000 + page, ++id);
            if (paragraph == 12) xml += "<w:r><w:rPr><w:vanish/></w:rPr><w:t>hidden note</w:t></w:r>";
            xml += "</w:p>";
        }
        xml += "<w:p><w:r><w:br w:type=\"page\"/></w:r></w:p>";
    }
    return xml + "<w:sectPr><w:pgSz w:w=\"11906\" w:h=\"16838\"/></w:sectPr></w:body></w:document>";
}

// Processor time of this process, in milliseconds: less disturbed than wall time on a shared
// machine.
double cpuMilliseconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

double peakResidentMB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
    const int pages = argc > 1 ? std::atoi(argv[1]) : 300;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    // Exactly the size of the text, as the writer's decoded part is.
    std::string xml = report(pages);
    xml.shrink_to_fit();
    const double baseline = peakResidentMB();
    tavrin::CleaningProfile profile = tavrin::CleaningProfile::maximumPrivacy();

    double best = 1e9;
    double bestCPU = 1e9;
    std::size_t outputSize = 0;
    for (int i = 0; i < runs; ++i) {
        const double cpuStart = cpuMilliseconds();
        const auto start = std::chrono::steady_clock::now();
        const auto out = tavrin::OfficeXMLScrubber::scrubWordPart(xml, profile, {"HiddenStyle"});
        const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        if (!out) {
            std::fprintf(stderr, "the part was refused\n");
            return 1;
        }
        outputSize = out->size();
        best = std::min(best, ms);
        bestCPU = std::min(bestCPU, cpuMilliseconds() - cpuStart);
    }
    // Before the comparison below, whose tree keeps every attribute.
    const double scrubPeak = peakResidentMB();
    // What parsing and serialising alone cost, for comparison: a profile that removes nothing.
    double baselineBest = 1e9;
    double baselineCPU = 1e9;
    for (int i = 0; i < runs; ++i) {
        const double cpuStart = cpuMilliseconds();
        const auto start = std::chrono::steady_clock::now();
        (void)tavrin::OfficeXMLScrubber::scrubWordPart(xml, tavrin::CleaningProfile{}, {});
        baselineBest = std::min(
            baselineBest, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        baselineCPU = std::min(baselineCPU, cpuMilliseconds() - cpuStart);
    }
    fmt::print("office scrub: parse and serialise alone {:.1f} ms ({:.1f} ms processor time)\n", baselineBest,
               baselineCPU);
    fmt::print("office scrub: document.xml {:.2f} MB, {} pages -> {:.2f} MB; best of {}: {:.1f} ms ({:.1f} ms processor time); peak RSS {:.1f} MB "
               "(input alone {:.1f} MB)\n",
               static_cast<double>(xml.size()) / 1e6, pages, static_cast<double>(outputSize) / 1e6, runs, best, bestCPU,
               scrubPeak, baseline);
    fmt::print("office scrub: peak RSS with the comparison {:.1f} MB\n", peakResidentMB());
    return 0;
}
