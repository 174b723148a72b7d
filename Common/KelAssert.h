// The non-fatal assertion of the whole system.
//
// A failed check formats "%s:%u: failed assertion: %s\n" (source path without extension,
// line, condition text) into a 256-byte buffer, truncating, prints it to standard output
// and carries on: it never aborts and never throws. The code after a failed check decides
// for itself whether to return early.
//
// The source path is the file's path relative to the source root without its extension
// ("Common/param"): the build maps the source root away from __FILE__ and the report cuts
// the extension. Some reports must name a fixed line, or a path other than the file they
// stand in; the *Line and *At forms take those explicitly.
#pragma once

// Prints the report line for a failed check. `sourcePath` may carry an extension, which is
// not printed; `expression` is printed as given.
void KelAssertReport(const char* sourcePath, unsigned line, const char* expression);

// Checks `cond`; reports the current file and line with the condition's own text.
#define KelAssert(cond) ((cond) ? (void)0 : KelAssertReport(__FILE__, __LINE__, #cond))

// Checks `cond`; reports the current file with the fixed line given.
#define KelAssertLine(line, cond) ((cond) ? (void)0 : KelAssertReport(__FILE__, (line), #cond))

// Checks `cond`; reports the given source path and line.
#define KelAssertAt(path, line, cond) ((cond) ? (void)0 : KelAssertReport((path), (line), #cond))

// Reports unconditionally, with the text of `expr` as written (a string literal keeps its
// quotes: KelFailLine(220, "assuming no flip needed") prints "\"assuming no flip needed\"").
#define KelFailLine(line, expr) KelAssertReport(__FILE__, (line), #expr)
#define KelFailAt(path, line, expr) KelAssertReport((path), (line), #expr)
