#pragma once
// Finds what an Office package carries besides its visible content: macros, embedded
// objects, custom XML, links to other workbooks and external data connections, which the
// cleaner never removes (findings not removable); hidden sheets, rows, columns and slides and
// shapes placed off the slide; and what a word-processing document carries without showing
// it: inactive and orphaned headers and footers, document variables, mail merge, the attached
// template, and printer settings in any Office format. Hidden sheets and slides and all of the
// word-processing latent content are removable, and have path sets that say which parts go;
// hidden rows, columns and off-slide shapes are reported only.
//
// Detectors never fail: a part that cannot be read or parsed yields no finding, or a finding
// with less detail. They only read through the archive they are given.
//
// The detectors share one namespace, declared by topic in the headers included here.

#include <vector>

#include "model/metadata_model.h"
#include "office/office_embedded_content_detection.h"
#include "office/office_hidden_content_paths.h"
#include "office/office_hidden_structure_detection.h"
#include "office/office_word_latent_content_detection.h"
#include "zip/archive.h"

namespace tavrin::OfficeHiddenContentDetector {

// Every detector's findings, in the fixed order of the detector table.
std::vector<MetadataItem> detect(const Archive& archive);

}  // namespace tavrin::OfficeHiddenContentDetector
