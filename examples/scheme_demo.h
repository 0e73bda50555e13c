/* The scheme part of the demo, and the demo's one file printer. */
#ifndef ZQSYS_EXAMPLE_SCHEME_DEMO_H
#define ZQSYS_EXAMPLE_SCHEME_DEMO_H

/* Loads the "trade" scheme from `tradeIni`, writes its dump, log and SQLite
 * database under `dir` and prints what it does. Returns 1 on success. */
int ShowSchemes(const char* dir, const char* tradeIni);

/* Prints a text file, each line indented. */
void PrintFile(const char* path);

#endif
