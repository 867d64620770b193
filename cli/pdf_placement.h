// Where and how large the pictures of a PDF document stand on its pages.
#pragma once

#include <map>
#include <qpdf/QPDFObjGen.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

namespace tessaline::cli {

struct PlacedSize {  // in inches, along the picture's rows and columns
  double width, height;
};
using Placements = std::map<QPDFObjGen, PlacedSize>;

// Adds the pictures that the page draws, also from the forms in it, and that are not there yet: of one that
// is drawn several times the first place counts. What cannot be followed is left out.
void AddPlacements(QPDFPageObjectHelper page, Placements* placements);

}  // namespace tessaline::cli
