target_link_libraries(vtapi_interpose PRIVATE vtapifconly ${CMAKE_DL_LIBS})
