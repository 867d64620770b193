#include "cli/pdf_placement.h"

#include <cmath>
#include <qpdf/QPDFMatrix.hh>
#include <set>
#include <string>
#include <vector>

namespace tessaline::cli {
namespace {

constexpr double kUnitsPerInch = 72;
constexpr int kDeepest = 16;  // forms in forms

// Follows the operators that move, and those that draw pictures and forms.
class ContentWalk final : public QPDFObjectHandle::ParserCallbacks {
 public:
  struct Document {
    Placements* placements;
    std::set<QPDFObjGen> forms;  // walked; another place of one would tell nothing new
  };
  ContentWalk(QPDFPageObjectHelper content, const QPDFMatrix& matrix, int depth, Document* document)
      : matrix_(matrix), depth_(depth), document_(document) {
    QPDFObjectHandle resources = content.getAttribute("/Resources", false);
    if (resources.isDictionary()) drawn_ = resources.getKey("/XObject");
  }

  void handleObject(QPDFObjectHandle object) override {
    if (!object.isOperator()) {
      operands_.push_back(object);
      return;
    }
    Act(object.getOperatorValue());
    operands_.clear();
  }
  void handleEOF() override {}

 private:
  void Act(const std::string& what) {
    if (what == "q") {
      saved_.push_back(matrix_);
    } else if (what == "Q" && !saved_.empty()) {
      matrix_ = saved_.back();
      saved_.pop_back();
    } else if (what == "cm" && operands_.size() == 6) {
      double m[6];
      for (size_t i = 0; i < 6; ++i) m[i] = operands_[i].isNumber() ? operands_[i].getNumericValue() : 0;
      matrix_.concat(QPDFMatrix(m[0], m[1], m[2], m[3], m[4], m[5]));
    } else if (what == "Do" && operands_.size() == 1 && operands_[0].isName() && drawn_.isDictionary()) {
      Draw(drawn_.getKey(operands_[0].getName()));
    }
  }

  void Draw(QPDFObjectHandle drawn) {
    if (drawn.isImage()) {
      const PlacedSize size = {std::hypot(matrix_.a, matrix_.b) / kUnitsPerInch,
                               std::hypot(matrix_.c, matrix_.d) / kUnitsPerInch};
      document_->placements->emplace(drawn.getObjGen(), size);
      return;
    }
    if (!drawn.isFormXObject() || depth_ == kDeepest || !document_->forms.insert(drawn.getObjGen()).second)
      return;
    QPDFMatrix matrix = matrix_;
    QPDFObjectHandle own = drawn.getDict().getKey("/Matrix");
    if (own.isMatrix()) matrix.concat(QPDFMatrix(own.getArrayAsMatrix()));
    QPDFPageObjectHelper form(drawn);
    ContentWalk walk(form, matrix, depth_ + 1, document_);
    form.parseContents(&walk);
  }

  QPDFMatrix matrix_;
  int depth_;
  Document* document_;
  QPDFObjectHandle drawn_ = QPDFObjectHandle::newNull();
  std::vector<QPDFMatrix> saved_;
  std::vector<QPDFObjectHandle> operands_;
};

}  // namespace

void AddPlacements(QPDFPageObjectHelper page, Placements* placements) {
  QPDFObjectHandle unit = page.getObjectHandle().getKey("/UserUnit");
  QPDFMatrix matrix;
  if (unit.isNumber()) matrix.scale(unit.getNumericValue(), unit.getNumericValue());
  ContentWalk::Document document = {placements, {}};
  ContentWalk walk(page, matrix, 0, &document);
  try {
    page.parseContents(&walk);
  } catch (const std::exception&) {
    // Sizes are for the words alone.
  }
}

}  // namespace tessaline::cli
