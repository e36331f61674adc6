target_link_libraries(tarncli_preload PRIVATE ${CMAKE_DL_LIBS})
