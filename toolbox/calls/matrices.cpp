// Matrices. These calls cannot fail, so they leave the movies error alone.
#include "toolbox/movie/matrix.h"

#include "toolbox/toolbox.h"

namespace toolbox {

void SetIdentityMatrix(MatrixRecord* matrix) { *matrix = kIdentityMatrix; }

bool EqualMatrix(const MatrixRecord* a, const MatrixRecord* b) { return *a == *b; }

void ConcatMatrix(const MatrixRecord* next, MatrixRecord* matrix) {
  *matrix = Concatenated(*matrix, *next);
}

void TranslateMatrix(MatrixRecord* matrix, Fixed dx, Fixed dy) {
  *matrix = Concatenated(*matrix, Translation(dx, dy));
}

void ScaleMatrix(MatrixRecord* matrix, Fixed sx, Fixed sy, Fixed aboutX, Fixed aboutY) {
  *matrix = Concatenated(*matrix, Scaling(sx, sy, aboutX, aboutY));
}

void RotateMatrix(MatrixRecord* matrix, Fixed degrees, Fixed aboutX, Fixed aboutY) {
  *matrix = Concatenated(*matrix, Rotation(degrees, aboutX, aboutY));
}

}  // namespace toolbox
