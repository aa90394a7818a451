#include "pyramid.hpp"

namespace orvo::detail {

ORVO_VECTOR_CLONES void reduceColumns(float* out, const float* a, const float* b, const float* c, const float* d,
                                      const float* e, int width)
{
    for (int x = 0; x < width; ++x)
        out[x] = ((a[x] + e[x]) + 4.0f * (b[x] + d[x]) + 6.0f * c[x]) * (1.0f / 16);
}

void padRow(float* row, int width)
{
    for (int i = 1; i <= kRowPad; ++i) {
        row[-i] = row[0];
        row[width - 1 + i] = row[width - 1];
    }
}

ORVO_VECTOR_CLONES void narrowRow(float* __restrict out, const float* __restrict in, int width)
{
    const int count = halved(width);
    for (int x = 0; x < count; ++x)
        out[x] =
            ((in[2 * x - 2] + in[2 * x + 2]) + 4.0f * (in[2 * x - 1] + in[2 * x + 1]) + 6.0f * in[2 * x]) * (1.0f / 16);
}

ORVO_VECTOR_CLONES void expandColumns(float* out, const float* above, const float* middle, const float* below,
                                      bool evenRow, int width)
{
    if (evenRow)
        for (int x = 0; x < width; ++x)
            out[x] = ((above[x] + below[x]) + 6.0f * middle[x]) * (1.0f / 8);
    else
        for (int x = 0; x < width; ++x)
            out[x] = (middle[x] + below[x]) * 0.5f;
}

ORVO_VECTOR_CLONES void widenRow(float* __restrict out, const float* __restrict in, int width)
{
    const int count = halved(width);
    for (int x = 0; x < count; ++x) {
        out[2 * x] = ((in[x - 1] + in[x + 1]) + 6.0f * in[x]) * (1.0f / 8);
        out[2 * x + 1] = (in[x] + in[x + 1]) * 0.5f;
    }
}

} // namespace orvo::detail
