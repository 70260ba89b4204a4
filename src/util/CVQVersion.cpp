#include <CVQVersion.h>

VQ_CONSTINIT const CVQVersion CVQVersion::invalid(0, 0, 0);
