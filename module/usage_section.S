/* The usage text, in a section that is in the file but is not loaded (no SHF_ALLOC). */
    .section Zantor_usage, "", %progbits
    .incbin "usage.txt"
    .byte 0
    .section .note.GNU-stack, "", %progbits
