// Clip of a convex quad against the destination rectangle, and the row spans
// of what remains. Built once per code path; the span interpolation is fused
// on l9 and k0.
#include <cmath>
#include <cstring>

#include "primitives/warp/fused.h"
#include "primitives/warp/warp_geometry.h"

namespace corvane::CORVANE_VARIANT {
namespace {

struct Point {
  double x;
  double y;
};

// Four half planes leave at most eight corners of a convex quad; the room
// beyond that only keeps a numerically bent polygon inside the arrays.
constexpr int kMaxPoints = kClippedQuadPoints;

struct Polygon {
  Point p[kMaxPoints + 1];  // + a closing copy of the first point
  int n = 0;
};

struct Box {
  double minX, maxX, minY, maxY;
};

Box BoundsOf(const Polygon& poly) {
  Box b{poly.p[0].x, poly.p[0].x, poly.p[0].y, poly.p[0].y};
  for (int i = 1; i < poly.n; ++i) {
    b.minX = std::fmin(b.minX, poly.p[i].x);
    b.maxX = std::fmax(b.maxX, poly.p[i].x);
    b.minY = std::fmin(b.minY, poly.p[i].y);
    b.maxY = std::fmax(b.maxY, poly.p[i].y);
  }
  return b;
}

// One side of the clip rectangle: keep points whose coordinate (y when
// `onY`, else x) is at least `bound` (`keepAbove`) or at most it.
struct HalfPlane {
  bool onY;
  bool keepAbove;
  double bound;

  // +1 strictly inside, -1 strictly outside, 0 on the line.
  int Side(const Point& q) const {
    const double v = onY ? q.y : q.x;
    if (v == bound) return 0;
    return ((v > bound) == keepAbove) ? 1 : -1;
  }
  Point Crossing(const Point& p, const Point& q) const {
    if (onY) return {(bound - p.y) * (q.x - p.x) / (q.y - p.y) + p.x, bound};
    return {bound, (bound - p.x) * (q.y - p.y) / (q.x - p.x) + p.y};
  }
};

void Emit(Polygon& out, const Point& q) {
  if (out.n < kMaxPoints) out.p[out.n++] = q;
}

// One Sutherland-Hodgman pass, edges p -> q with the last one closing back.
void ClipPass(Polygon& poly, const HalfPlane& h) {
  Polygon out;
  poly.p[poly.n] = poly.p[0];
  for (int i = 0; i < poly.n; ++i) {
    const Point& p = poly.p[i];
    const Point& q = poly.p[i + 1];
    const int sp = h.Side(p), sq = h.Side(q);
    if (sq < 0 && sp <= 0) continue;
    if (sp < 0 && sq > 0) {
      Emit(out, h.Crossing(p, q));
      Emit(out, q);
    } else if (sp > 0 && sq < 0) {
      Emit(out, h.Crossing(p, q));
    } else {
      Emit(out, q);
    }
  }
  std::memcpy(poly.p, out.p, sizeof(Point) * out.n);
  poly.n = out.n;
}

// Whether two doubles lie within 2 units in the last place of each other,
// judged by their bit patterns.
bool NearlyEqual(double a, double b) {
  int64_t ia, ib;
  std::memcpy(&ia, &a, sizeof ia);
  std::memcpy(&ib, &b, sizeof ib);
  const uint64_t d = ia > ib ? uint64_t(ia) - uint64_t(ib) : uint64_t(ib) - uint64_t(ia);
  return d <= 2;
}

// A crossing computed a hair beside a side whose neighbours both lie on it
// is put onto the side, so that rounding can't add a row or a column.
void Straighten(Polygon& poly, const Box& clip) {
  if (poly.n < 2) return;
  for (int i = 1; i < poly.n; ++i) {
    const Point& prev = poly.p[i - 1];
    const Point& next = poly.p[(i + 1) % poly.n];
    Point& cur = poly.p[i];
    if (prev.x == next.x && (prev.x == clip.minX || prev.x == clip.maxX) &&
        (prev.y == cur.y || cur.y == next.y) && NearlyEqual(cur.x, prev.x)) {
      cur.x = prev.x;
    }
    if (prev.y == next.y && (prev.y == clip.minY || prev.y == clip.maxY) &&
        (prev.x == cur.x || cur.x == next.x) && NearlyEqual(cur.y, prev.y)) {
      cur.y = prev.y;
    }
  }
}

void RemoveRepeats(Polygon& poly) {
  if (poly.n < 2) return;
  int m = 1;
  for (int i = 1; i < poly.n; ++i) {
    if (poly.p[i].x == poly.p[m - 1].x && poly.p[i].y == poly.p[m - 1].y) continue;
    poly.p[m++] = poly.p[i];
  }
  poly.n = m;
}

// One side of the polygon, walked down from the top point.
struct Chain {
  int cur;
  int dir;  // -1 toward lower indices, +1 toward higher ones
  double startX = 0, startY = 0, slope = 0;
  double lo = 0, hi = 0;  // the edge's columns
};

// Steps to the chain's next point, over horizontal edges. False when that
// reaches the other chain's point along a horizontal edge: the walk is over.
bool Advance(const Polygon& poly, Chain& c, int other) {
  int cur = c.cur;
  for (int k = 0; k < poly.n; ++k) {
    const int next = (cur + c.dir + poly.n) % poly.n;
    const Point& a = poly.p[cur];
    const Point& b = poly.p[next];
    if (b.y != a.y) {
      c.startX = a.x;
      c.startY = a.y;
      c.slope = (b.x - a.x) / (b.y - a.y);
      c.lo = std::fmin(a.x, b.x);
      c.hi = std::fmax(a.x, b.x);
      c.cur = next;
      return true;
    }
    if (next == other) return false;
    cur = next;
  }
  return false;
}

// Where row y crosses the chain's edge. An edge a hair high has a slope
// beyond the doubles (infinite, or 0 · ∞ at its start): its crossings are
// held to the edge's own columns, or the span would reach anywhere.
double ChainX(const Chain& c, double y) {
  const double x = FusedMulAdd(y - c.startY, c.slope, c.startX);
  if (x != x) return c.startX;
  return std::fmin(std::fmax(x, c.lo), c.hi);
}

void StoreSpan(int32_t* pair, double left, double right, const Box& clip) {
  // The spans lie inside the clip by construction; the limits only keep a
  // rounding slip from ever reaching a column outside it.
  pair[0] = int32_t(std::fmin(std::fmax(left, clip.minX), 2147483647.0));
  pair[1] = int32_t(std::fmax(std::fmin(right, std::fmin(clip.maxX, 2147483647.0)), -1.0));
}

void FillRowTable(const Polygon& poly, int32_t orientation, int32_t firstRow, int32_t lastRow,
                  const Box& clip, int32_t* table) {
  for (int64_t r = firstRow; r <= lastRow; ++r) {  // empty until the walk fills it
    table[2 * (r - firstRow)] = 0;
    table[2 * (r - firstRow) + 1] = -1;
  }
  const Point* p = poly.p;
  if (poly.n == 1) {
    const double x = std::floor(p[0].x);
    StoreSpan(table, x, x, clip);
    return;
  }
  int top = 0;
  for (int i = 1; i < poly.n; ++i) {
    if (p[i].y < p[top].y) top = i;
  }
  StoreSpan(table, std::ceil(std::fmin(p[0].x, p[1].x)), std::floor(std::fmax(p[0].x, p[1].x)),
            clip);
  Chain a{top, -1}, b{top, +1};
  int64_t row = firstRow;
  do {
    const double yA = p[a.cur].y, yB = p[b.cur].y;
    if (yB >= yA && !Advance(poly, a, b.cur)) break;
    if (yA >= yB && !Advance(poly, b, a.cur)) break;
    const int64_t last = int64_t(std::floor(std::fmin(p[a.cur].y, p[b.cur].y)));
    for (int64_t r = row; r <= last && r <= lastRow; ++r) {
      const double y = double(r);
      const double xA = ChainX(a, y), xB = ChainX(b, y);
      const double lb = orientation == 1 ? xA : xB;
      const double rb = orientation == 1 ? xB : xA;
      double left = std::ceil(lb), right = std::floor(rb);
      // A boundary a hair past a column still covers it.
      if (lb + 1.0 - left < 1e-13) left -= 1.0;
      if (1.0 - rb + right < 1e-13) right += 1.0;
      StoreSpan(table + 2 * (r - firstRow), left, right, clip);
    }
    row = last + 1;
  } while (a.cur != b.cur);
}

bool InInt32(double v) { return v >= -2147483648.0 && v <= 2147483647.0; }

bool AllFinite(const double* values, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    if (!__builtin_isfinite(values[i])) return false;
  }
  return true;
}

}  // namespace

int32_t ownClipQuad(const double* quad, RectCorners rect, double* points) {
  // A transform that overflowed or wasn't a number leaves nothing.
  if (!AllFinite(quad, 8)) return 0;
  const Box clip{double(rect.x0), double(rect.x1), double(rect.y0), double(rect.y1)};
  Polygon poly;
  poly.n = 4;
  for (int i = 0; i < 4; ++i) poly.p[i] = {quad[2 * i], quad[2 * i + 1]};

  const Box box = BoundsOf(poly);
  if (clip.minY > box.maxY || box.minY > clip.maxY || clip.minX > box.maxX ||
      box.minX > clip.maxX) {
    poly.n = 0;
  } else {
    // A pass whose half plane holds the whole box carries the polygon over.
    if (!(box.minY >= clip.minY)) ClipPass(poly, {true, true, clip.minY});
    if (!(box.maxY <= clip.maxY)) ClipPass(poly, {true, false, clip.maxY});
    if (!(box.minX >= clip.minX)) ClipPass(poly, {false, true, clip.minX});
    if (!(box.maxX <= clip.maxX)) ClipPass(poly, {false, false, clip.maxX});
  }
  Straighten(poly, clip);
  RemoveRepeats(poly);
  std::memcpy(points, poly.p, sizeof(Point) * poly.n);
  // Corners near the ends of the double range can cut an edge at no number.
  return AllFinite(points, 2 * poly.n) ? poly.n : 0;
}

int32_t ownQuadRowRange(const double* quad, RectCorners rect, int32_t orientation,
                        int32_t* rowTable, int32_t* yMin, int32_t* yMax) {
  double points[2 * kMaxPoints];
  Polygon poly;
  poly.n = ownClipQuad(quad, rect, points);
  if (poly.n <= 0) return 0;
  std::memcpy(poly.p, points, sizeof(Point) * poly.n);

  const Box kept = BoundsOf(poly);
  // Rows or columns beyond 32 bits: nothing to draw.
  if (!InInt32(kept.minX) || !InInt32(kept.maxX) || !InInt32(kept.minY) || !InInt32(kept.maxY)) {
    return 0;
  }
  const int32_t first = int32_t(std::ceil(kept.minY));
  const int32_t last = int32_t(std::floor(kept.maxY));
  *yMin = first;
  *yMax = last;
  if (int64_t(last) - first + 1 <= 0 || std::floor(kept.maxX) < std::ceil(kept.minX)) return 0;
  const Box clip{double(rect.x0), double(rect.x1), double(rect.y0), double(rect.y1)};
  if (rowTable) FillRowTable(poly, orientation, first, last, clip, rowTable);
  return 1;
}

}  // namespace corvane::CORVANE_VARIANT
