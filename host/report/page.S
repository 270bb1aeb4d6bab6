/* The page that page.cmake has put together, in the data of the program. */
    .section .rodata, "a", %progbits
    .globl hoplar_page_begin, hoplar_page_end
    .hidden hoplar_page_begin, hoplar_page_end
hoplar_page_begin:
    .incbin "page.html"
hoplar_page_end:
    .section .note.GNU-stack, "", %progbits
