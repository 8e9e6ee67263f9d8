/* A client of the installed library: builds a node and a message with a
 * signal, finds them, encodes and decodes a frame through a compiled decoder
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
    sigblk* signal = TAVLO_CREATE_SIGBLK();
    tavlo_root_t root;
    tavlo_decoder_t* decoder;
    tavlo_dec_setting_t setting = {"Kmh", TAVLO_DEC_SET_PHYSICAL, 123.5, 0, NULL};
    tavlo_dec_value_t value;
    unsigned char frame[8];
    size_t length = 0, count = 0;
    int ok;

    strcpy(node->name, "Engine");
    CAN_INSERT_SYMBOL(&nodes, node, 0);
    strcpy(message->name, "Speed");
    message->id = 0x123;
    message->transmitter = node;
    message->dlc = 2;
    CAN_INSERT_MSG(&messages, message, 0);
    strcpy(signal->name, "Kmh");
    signal->length = 16;
    signal->factor = 0.5;
    message->signals = signal;

    memset(&root, 0, sizeof root);
    root.messages = messages;
    decoder = tavlo_decoder_compile(&root, NULL, 0);

    ok = TAVLO_GET_MESSAGE(messages, 0x123) == message &&
         TAVLO_GET_SYMBOL_NAME(nodes, "Engine") == node && decoder != NULL &&
         tavlo_decoder_encode(decoder, 0, &setting, 1, frame, sizeof frame, &length, NULL, 0) ==
             TAVLO_DEC_OK &&
         length == 2 && frame[0] == 247 && frame[1] == 0 &&
         tavlo_decoder_decode(decoder, 0x123, frame, length, &value, 1, &count) == TAVLO_DEC_OK &&
         count == 1 && value.raw == 247 && value.physical == 123.5;
    tavlo_decoder_free(decoder);
    TAVLO_FREE(nodes, messages, NULL, NULL, NULL, NULL, NULL, filter, NULL, NULL, NULL, NULL);
    printf("client: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
