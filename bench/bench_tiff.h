// bench_tiff.h - libtiff reading and writing TIFF files held in memory,
// for the codec benchmarks: the peer's codecs are reached through its
// strip interface, with the file I/O replaced by copies to and from a
// byte vector.
#ifndef TQBASE_BENCH_TIFF_H
#define TQBASE_BENCH_TIFF_H

#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace tqbench {

struct MemFile {
  std::vector<unsigned char> data;
  toff_t pos = 0;
};

inline tsize_t MemRead(thandle_t h, tdata_t buf, tsize_t n) {
  MemFile* f = static_cast<MemFile*>(h);
  if (f->pos >= f->data.size()) return 0;
  const tsize_t k = std::min<tsize_t>(n, (tsize_t)(f->data.size() - f->pos));
  std::memcpy(buf, f->data.data() + f->pos, k);
  f->pos += k;
  return k;
}
inline tsize_t MemWrite(thandle_t h, tdata_t buf, tsize_t n) {
  MemFile* f = static_cast<MemFile*>(h);
  if (f->pos + n > f->data.size()) f->data.resize(f->pos + n);
  std::memcpy(f->data.data() + f->pos, buf, n);
  f->pos += n;
  return n;
}
inline toff_t MemSeek(thandle_t h, toff_t off, int whence) {
  MemFile* f = static_cast<MemFile*>(h);
  f->pos = whence == SEEK_SET ? off : whence == SEEK_CUR ? f->pos + off : f->data.size() + off;
  return f->pos;
}
inline int MemClose(thandle_t) { return 0; }
inline toff_t MemSize(thandle_t h) { return static_cast<MemFile*>(h)->data.size(); }
// Reading maps the file: the peer decodes straight from the bytes, as it
// does from a memory-mapped file, without copying strips first.
inline int MemMap(thandle_t h, tdata_t* base, toff_t* size) {
  MemFile* f = static_cast<MemFile*>(h);
  *base = f->data.data();
  *size = f->data.size();
  return 1;
}
inline void MemUnmap(thandle_t, tdata_t, toff_t) {}

inline TIFF* MemOpen(MemFile& f, const char* mode) {
  f.pos = 0;
  return TIFFClientOpen("mem", mode, &f, MemRead, MemWrite, MemSeek, MemClose, MemSize, MemMap, MemUnmap);
}

}  // namespace tqbench

#endif  // TQBASE_BENCH_TIFF_H
