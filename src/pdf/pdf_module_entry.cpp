// Built into the PDF module only: the symbol the program looks up after loading it.
#include "pdf/pdf_support.h"

extern "C" __attribute__((visibility("default"))) const tavrin::PDFSupport* tavrin_pdf_support() {
    return &tavrin::PDFSupport::native();
}
