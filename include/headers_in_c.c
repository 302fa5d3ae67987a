/* The public headers are C: they compile alone, and their records have the sizes that the layer counts on. */
#include "velmoor/external_tool.h"
#include "velmoor/invoke_tool.h"

_Static_assert(sizeof(XrOrvanicExternalToolRegisterInfoKESTX1) == 1144, "the record is part of the interface");
_Static_assert(sizeof(XrOrvanicExternalToolParameterKESTX1) == 5216, "the record is part of the interface");
