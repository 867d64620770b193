# cmake -DSITE=FOLDER -DKEPT=FILES -P tidy_site.cmake: removes all other files of the folder.
file(GLOB_RECURSE found "${SITE}/*")
list(REMOVE_ITEM found ${KEPT})
if(found)
  file(REMOVE ${found})
endif()
