# cv_embed_text(TARGET FILE SYMBOL): the text of FILE (up to 64 KiB, no word between two @) as the constant SYMBOL in namespace
# cv::tools, in the header SYMBOL.h.
function(cv_embed_text target file symbol)
  file(READ ${file} text)
  set(header ${CMAKE_CURRENT_BINARY_DIR}/embedded/${symbol}.h)
  file(CONFIGURE OUTPUT ${header} @ONLY CONTENT
"#pragma once

namespace cv::tools {

inline constexpr char ${symbol}[] = R\"embedded(${text})embedded\";

}  // namespace cv::tools
")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/embedded)
endfunction()
