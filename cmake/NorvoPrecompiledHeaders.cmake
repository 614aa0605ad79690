# Every translation unit of Norvo parses the same standard headers and
# nlohmann/json; precompiling them per target roughly halves a clean build on
# a two-core machine.
option(NORVO_PCH "Precompile the common headers of each target" ON)

set(NORVO_PCH_COMMON
  <algorithm> <atomic> <chrono> <functional> <map> <memory> <mutex> <optional>
  <string> <string_view> <utility> <variant> <vector>
  <nlohmann/json.hpp> <pugixml.hpp>)

# norvo_use_pch(target [extra headers...])
function(norvo_use_pch target)
  if(NORVO_PCH)
    target_precompile_headers(${target} PRIVATE ${NORVO_PCH_COMMON} ${ARGN})
  endif()
endfunction()
