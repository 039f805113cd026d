// checked.h - the one checked helper for sizes and offsets.
//
// Every size or offset that is computed from caller data (counts times
// element sizes, widths times depths, offsets plus lengths) goes through
// these; an overflow gives false, never undefined behaviour.
#ifndef TQBASE_CHECKED_H
#define TQBASE_CHECKED_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace tqbase {

#if defined(__GNUC__) || defined(__clang__)
#define TQBASE_ADD_OVERFLOW(a, b, r) __builtin_add_overflow(a, b, r)
#define TQBASE_SUB_OVERFLOW(a, b, r) __builtin_sub_overflow(a, b, r)
#define TQBASE_MUL_OVERFLOW(a, b, r) __builtin_mul_overflow(a, b, r)
#else
// Portable fallbacks for compilers without the overflow built-ins.
template <class T>
inline bool AddOverflowFallback(T a, T b, T* r) {
  if (std::is_signed<T>::value) {
    if ((b > 0 && a > std::numeric_limits<T>::max() - b) || (b < 0 && a < std::numeric_limits<T>::min() - b)) return true;
  } else if (a > std::numeric_limits<T>::max() - b) {
    return true;
  }
  *r = (T)(a + b);
  return false;
}
template <class T>
inline bool SubOverflowFallback(T a, T b, T* r) {
  if (std::is_signed<T>::value) {
    if ((b < 0 && a > std::numeric_limits<T>::max() + b) || (b > 0 && a < std::numeric_limits<T>::min() + b)) return true;
  } else if (a < b) {
    return true;
  }
  *r = (T)(a - b);
  return false;
}
template <class T>
inline bool MulOverflowFallback(T a, T b, T* r) {
  if (a == 0 || b == 0) { *r = 0; return false; }
  if (std::is_signed<T>::value) {
    if (a == -1 && b == std::numeric_limits<T>::min()) return true;
    if (b == -1 && a == std::numeric_limits<T>::min()) return true;
    if ((a > 0 && b > 0 && a > std::numeric_limits<T>::max() / b) ||
        (a > 0 && b < 0 && b < std::numeric_limits<T>::min() / a) ||
        (a < 0 && b > 0 && a < std::numeric_limits<T>::min() / b) ||
        (a < 0 && b < 0 && a < std::numeric_limits<T>::max() / b))
      return true;
  } else if (a > std::numeric_limits<T>::max() / b) {
    return true;
  }
  *r = (T)(a * b);
  return false;
}
#define TQBASE_ADD_OVERFLOW(a, b, r) ::tqbase::AddOverflowFallback(a, b, r)
#define TQBASE_SUB_OVERFLOW(a, b, r) ::tqbase::SubOverflowFallback(a, b, r)
#define TQBASE_MUL_OVERFLOW(a, b, r) ::tqbase::MulOverflowFallback(a, b, r)
#endif

// out = a + b; false when the exact result does not fit in T.
template <class T>
inline bool CheckedAdd(T a, T b, T* out) {
  static_assert(std::is_integral<T>::value, "integral types only");
  return !TQBASE_ADD_OVERFLOW(a, b, out);
}

// out = a - b; false when the exact result does not fit in T.
template <class T>
inline bool CheckedSub(T a, T b, T* out) {
  static_assert(std::is_integral<T>::value, "integral types only");
  return !TQBASE_SUB_OVERFLOW(a, b, out);
}

// out = a * b; false when the exact result does not fit in T.
template <class T>
inline bool CheckedMul(T a, T b, T* out) {
  static_assert(std::is_integral<T>::value, "integral types only");
  return !TQBASE_MUL_OVERFLOW(a, b, out);
}

// Byte size of count elements of elemSize bytes each, for a buffer the
// library allocates: false for a negative count or an overflow of limit.
inline bool CheckedBytes(long long count, size_t elemSize, size_t* out,
                         size_t limit = std::numeric_limits<size_t>::max()) {
  if (count < 0) return false;
  size_t n = 0;
  if (!CheckedMul(static_cast<size_t>(count), elemSize, &n) || n > limit) return false;
  *out = n;
  return true;
}

// True when [offset, offset + length) lies within [0, size).
inline bool RangeInside(size_t offset, size_t length, size_t size) {
  return offset <= size && length <= size - offset;
}

}  // namespace tqbase

#endif  // TQBASE_CHECKED_H
