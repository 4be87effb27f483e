/// Compression of whole files to gzip and back. Both functions may be called from any thread; a file must not be
/// written by somebody else meanwhile.
#ifndef QO_UTILITIES_ZLIB_H
#define QO_UTILITIES_ZLIB_H

#include <string>

/// Writes `source` as a gzip file to `destination`, which is replaced. The source stays.
/// @return 0; -1 when a file cannot be opened (a missing source leaves the destination alone), read or written.
///         A run that failed half way leaves a partial destination behind.
int qo_zlibCompress(const std::string& source, const std::string& destination);

/// Writes what the gzip file `source` holds to `destination`, which is replaced. The source stays; a source that
/// is no gzip file is copied. Archives that end early or are damaged give what could be read, and 0.
/// @return 0; -1 when a file cannot be opened or the destination cannot be written.
int qo_zlibDecompress(const std::string& source, const std::string& destination);

#endif
