// What the tooltips say. Several rows may name the same control; each is a tip of its own.
#pragma once

#include <cstdint>

#include "dialog/control_ids.h"

namespace tessaline {

struct TooltipText {
  int32_t controlId;
  const char* text;
};

// The wording is kept as users and translations know it: "disk" beside "disc", and colour names that do not
// match the "Cyan" button.
constexpr TooltipText kTooltipTexts[] = {
    {TESSALINE_OK, "Apply Changes"},
    {TESSALINE_CANCEL, "Do not apply this filter"},
    {TESSALINE_PREVIEW, "Show/hide effects of this filter"},
    {TESSALINE_PROTECTION_BAR, "Protect important details in low frequencies from being removed."},
    {TESSALINE_PROTECTION_LABEL, "Protect important details in low frequencies from being removed."},
    {TESSALINE_PROTECTION_EDIT, "Protect important details in low frequencies from being removed."},
    {TESSALINE_PROTECTION_SMALLER, "A smaller disk protects just the lowest frequencies from being removed."},
    {TESSALINE_PROTECTION_BIGGER, "A bigger disc protects more frequencies from being removed."},
    {TESSALINE_ACCEPTANCE_BAR, "Select the amount of the pattern to be removed."},
    {TESSALINE_ACCEPTANCE_LABEL, "Select the amount of the pattern to be removed."},
    {TESSALINE_ACCEPTANCE_EDIT, "Select the amount of the pattern to be removed."},
    {TESSALINE_ACCEPTANCE_LOWER, "Only allow the strongest repeating patterns to be removed."},
    {TESSALINE_ACCEPTANCE_HIGHER,
     "Allow weaker repeating patterns to be removed until you eventually lose details."},
    {TESSALINE_NOTCH_BAR,
     "Refine notch filter radius to include adjacent frequencies that may include the pattern."},
    {TESSALINE_NOTCH_LABEL,
     "Refine notch filter radius to include adjacent frequencies that may include the pattern."},
    {TESSALINE_NOTCH_EDIT,
     "Refine notch filter radius to include adjacent frequencies that may include the pattern."},
    {TESSALINE_NOTCH_SMALLER,
     "Adjust the notch smaller to match just the peak frequencies, to minimize loss of important details."},
    {TESSALINE_NOTCH_BIGGER,
     "Expand the notch to include adjacent frequencies that may be part of the pattern."},
    {TESSALINE_HIGHLIGHT_RED, "Set the highlight colors to Red=Remove, Blue=Protect"},
    {TESSALINE_HIGHLIGHT_CYAN, "Set the highlight colors to Blue=Remove, Red=Protect"},
    {TESSALINE_HIGHLIGHT_OTHER, "Change the highlight colors"},
    {TESSALINE_HIGHLIGHT_SWATCH, "Change the highlight colors"},
    {TESSALINE_SPECTRUM_VIEW, "Representation of the frequency components of the image."},
    {TESSALINE_DEFAULT, "Restore filter to default settings"},
    {TESSALINE_SPECTRUM_VIEW, "Click to toggle between Flat and 3D Power Spectrum views."},
    {TESSALINE_MANUAL, "Consult the manual on Tessaline..."},
    {TESSALINE_QUICK_GUIDE, "Quick Guide"},
};

}  // namespace tessaline
