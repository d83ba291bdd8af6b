    kel_at = kel_position;
    gl_FragColor = texture2D(kel_frame, kel_at);
