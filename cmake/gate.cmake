# Every target of the house links `gate`: one language level, one set of warnings, one set of Qt rules.
add_library(gate INTERFACE)
target_compile_features(gate INTERFACE cxx_std_20)
target_include_directories(gate INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(gate INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
    -Wcast-align -Wnull-dereference -Wformat=2 -Wimplicit-fallthrough)
target_compile_definitions(gate INTERFACE
    QT_DISABLE_DEPRECATED_BEFORE=0x060400
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_KEYWORDS
    QT_NO_FOREACH
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_USE_QSTRINGBUILDER)
# A release is the same bytes wherever it is built, and complete as the linker leaves it.
# It reads what strangers send, so it also has what compilers offer against their mistakes.
target_compile_options(gate INTERFACE "$<$<CONFIG:Release>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.;\
-fstack-protector-strong;-fstack-clash-protection;-D_FORTIFY_SOURCE=2>")
target_link_options(gate INTERFACE "$<$<CONFIG:Release>:-s;LINKER:-z,relro,-z,now>")

option(TESSELLAN_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(TESSELLAN_SANITIZE)
    target_compile_options(gate INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer
        "$<$<BOOL:$<TARGET_PROPERTY:TESSELLAN_WITHOUT_VPTR>>:-fno-sanitize=vptr>")
    target_link_options(gate INTERFACE -fsanitize=address,undefined)
endif()

# For the tests that carry the label "worker"; Qt itself is not built so, see tests/tsan_suppressions.
option(TESSELLAN_TSAN "Build with ThreadSanitizer" OFF)
if(TESSELLAN_TSAN)
    target_compile_options(gate INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(gate INTERFACE -fsanitize=thread)
endif()
