/* A client of the installed library: builds a node and a message, finds them
 * and frees everything. Exits 0 when all went as expected. */
#include <stdio.h>
#include <string.h>

#include <tavloms/tavloms.h>

int main(void) {
    symblk* nodes = NULL;
    msgblk* messages = NULL;
    filter_t filter = {NULL, NULL, 0};
    symblk* node = TAVLO_CREATE_SYMBOL();
    msgblk* message = TAVLO_CREATE_MSGBLK();
    int ok;

    strcpy(node->name, "Engine");
    CAN_INSERT_SYMBOL(&nodes, node, 0);
    strcpy(message->name, "Speed");
    message->id = 0x123;
    message->transmitter = node;
    CAN_INSERT_MSG(&messages, message, 0);

    ok = TAVLO_GET_MESSAGE(messages, 0x123) == message &&
         TAVLO_GET_SYMBOL_NAME(nodes, "Engine") == node;
    TAVLO_FREE(nodes, messages, NULL, NULL, NULL, NULL, NULL, filter, NULL, NULL, NULL, NULL);
    printf("client: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
