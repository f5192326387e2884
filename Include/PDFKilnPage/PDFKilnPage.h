// PDFKilnPage: embed pages of existing PDF files in newly composed PDFs.
// One include for everything the library offers.
#ifndef PDFKILNPAGE_H
#define PDFKILNPAGE_H

#include "QarMemStream/QarMemStream.h"
#include "ZQGraphicService/ZqFilter.h"
#include "ZQXml/ZQXml.h"
#include "cpdfkilnpage_encode.h"
#include "crypt/pcrypt.h"
#include "jbig2/jbig2.h"
#include "jbig2/jbig2streamdec.h"
#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_fileinfo.h"
#include "pdfkiln_filter.h"
#include "pdfkiln_findingvalue.h"
#include "pdfkiln_memsource.h"
#include "pdfkiln_obj.h"
#include "pdfkiln_obj_action.h"
#include "pdfkiln_obj_annot.h"
#include "pdfkiln_obj_catalog.h"
#include "pdfkiln_obj_names.h"
#include "pdfkiln_obj_struct.h"
#include "pdfkiln_page.h"
#include "pdfkiln_reftable.h"
#include "pdfkiln_sourfile.h"
#include "pfdecrypt.h"
#include "yard/pdf_rules.h"

#endif
