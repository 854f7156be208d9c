# TEV_SANITIZE instruments the whole tree: library, simulator, host and tests.
if(TEV_SANITIZE)
  add_compile_options(-fsanitize=${TEV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TEV_SANITIZE})
endif()
