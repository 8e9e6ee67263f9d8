/* tavloms/codec.h: the formats in which a manager renders a signal's value
 * as text (TavloManager::GetSignalValue), and the result codes of the signal
 * value operations. The operations themselves are members of TavloManager
 * (manager.h). C++ only. */
#ifndef TAVLOMS_CODEC_H
#define TAVLOMS_CODEC_H

#ifdef __cplusplus

/* Results of the signal value operations. */
enum : unsigned int {
    TAVLO_SIGNAL_OK = 0,
    TAVLO_SIGNAL_NOT_EXTRACTED = 1,  /* field too long (90 bits or more) or text format unknown */
    TAVLO_SIGNAL_WRONG_TYPE = 2,     /* integer signal given to a floating-point operation */
    TAVLO_SIGNAL_TOO_LONG = 3,       /* more than 32 bits where 32 is the most */
    TAVLO_SIGNAL_OUT_OF_RANGE = 4,   /* physical value outside [minimum, maximum] */
    TAVLO_SIGNAL_NOT_PRESENT = 5,    /* multiplexed signal absent from this frame */
    TAVLO_SIGNAL_NO_MEMORY = 6       /* the text could not be allocated */
};

/* What the formatted GetSignalValue renders. */
enum TavloSigvalueFormat {
    SigvalueRawDec = 0,      /* raw value, sign-extended when signed: "%d" */
    SigvalueRawHex = 1,      /* raw 32-bit word: "%x" */
    SigvalueBytesDec = 2,    /* bytes of the field, most significant first, "%3d" each */
    SigvalueBytesHex = 3,    /* the same in hexadecimal, "%02X" each */
    SigvaluePhys = 4,        /* physical value: "%lg" */
    SigvaluePhysUnit = 5,    /* physical value and unit: "%lg %s" */
    SigvalueDescription = 6, /* the value description of the raw value */
    SigvalueRawBytes = 7,    /* the field's little-endian byte image itself, not text */
    SigvalueBinary = 8       /* "1"/"0" per bit, most significant first */
};

#endif /* __cplusplus */

#endif /* TAVLOMS_CODEC_H */
