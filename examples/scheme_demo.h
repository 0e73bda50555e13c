/* The scheme part of the demo. */
#ifndef ZQSYS_EXAMPLE_SCHEME_DEMO_H
#define ZQSYS_EXAMPLE_SCHEME_DEMO_H

/* Loads the "trade" scheme from `tradeIni`, writes its dump, log and SQLite
 * database under `dir` and prints what it does. Returns 1 on success. */
int ShowSchemes(const char* dir, const char* tradeIni);

#endif
