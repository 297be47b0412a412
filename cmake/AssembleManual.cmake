# Assembles Manual.htm from the fragments in content/manual: the numbered fragments in order, with the effect
# fragments (content/manual/effects/<Display Name>.html, by name) after "10-effects.html".
#   cmake -DSOURCE=<content/manual> -DOUTPUT=<Manual.htm> -P AssembleManual.cmake
file(GLOB parts RELATIVE "${SOURCE}" "${SOURCE}/*.html")
list(SORT parts)
file(GLOB effects "${SOURCE}/effects/*.html")
list(SORT effects)
set(page "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>Orvanto Manual</title>\n")
string(APPEND page "<style>body{background:#101218;color:#e8ecf2;font-family:sans-serif;max-width:1240px;margin:2em auto;line-height:1.5}"
                   "h1,h2{color:#f2c14e}h3{color:#7fd4ff;margin-bottom:0.2em}img{max-width:100%;border:1px solid #2a2f3a}</style>\n")
string(APPEND page "</head>\n<body>\n<h1>Orvanto</h1>\n")
foreach(part IN LISTS parts)
  file(READ "${SOURCE}/${part}" text)
  string(APPEND page "${text}\n")
  if(part STREQUAL "10-effects.html")
    foreach(effect IN LISTS effects)
      file(READ "${effect}" text)
      string(APPEND page "${text}\n")
    endforeach()
  endif()
endforeach()
string(APPEND page "</body>\n</html>\n")
file(WRITE "${OUTPUT}" "${page}")
