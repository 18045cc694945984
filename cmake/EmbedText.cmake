# cv_embed_text(TARGET FILE SYMBOL): the text of FILE (up to 64 KiB, no word between two @) as the constant
# SYMBOL in namespace cv::tools; its header stands beside FILE as far as includes can tell, as SYMBOL.h.
function(cv_embed_text target file symbol)
  set(source ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  file(READ ${source} text)
  cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE place)
  cmake_path(GET place PARENT_PATH folder)
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/embedded/${folder}/${symbol}.h @ONLY CONTENT
"#pragma once

namespace cv::tools {

inline constexpr char ${symbol}[] = R\"embedded(${text})embedded\";

}  // namespace cv::tools
")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  target_include_directories(${target} PRIVATE ${CMAKE_BINARY_DIR}/embedded)
endfunction()
