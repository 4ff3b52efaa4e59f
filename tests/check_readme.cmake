# Fails unless README shows FILE as it is.
file(READ ${README} readme)
file(READ ${FILE} shown)
string(FIND "${readme}" "${shown}" place)
if(place EQUAL -1)
  message(FATAL_ERROR "${README} does not show ${FILE} as it is; copy it into the page")
endif()
