// A library that knows nothing of sys_marlix and allocates while it is loaded, before a library linked after it.
extern char* const earlyBlock;
char* const earlyBlock = new char[777];
