#include <velmoor/external_tool.h>
#include <velmoor/invoke_tool.h>

int main(void) {
    PFN_xrOrvanicRegisterExternalToolKESTX1 register_tool = NULL;
    return register_tool != NULL;
}
